/* The service-configuration tool of the scratch host: prints /bench/init-scripts, whatever it is
 * asked. */
#include <fcntl.h>
#include <unistd.h>

int main(void) {
  char buffer[65536];
  int list = open("/bench/init-scripts", O_RDONLY);
  ssize_t count = 0;
  while ((count = read(list, buffer, sizeof buffer)) > 0) {
    if (write(STDOUT_FILENO, buffer, (size_t)count) != count) return 1;
  }
  return count == 0 ? 0 : 1;
}
