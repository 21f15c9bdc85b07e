/* usage: bare_dlopen SHARED-OBJECT: loads it and calls its entry "start", with no checks. */
#include <bootforge/plugin.h>
#include <dlfcn.h>

int main(int argc, char** argv) {
  void* object = argc == 2 ? dlopen(argv[1], RTLD_NOW) : NULL;
  if (object == NULL) return 2;
  const struct bootforge_operations* operations = dlsym(object, "operations");
  return operations == NULL ? 2 : operations->start();
}
