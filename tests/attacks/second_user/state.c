// What a process was given, and a start with all of that odd.
//
//   dirty UMASK PROGRAM WORDS...   becomes the program, with every signal ignored and blocked, that
//                                  umask, open descriptors and an odd environment
//   odd PROGRAM WORDS...           becomes the program, with the odd environment alone
//   any other name                 appends a record of itself to /tmp/state-NAME and becomes
//                                  real/NAME beside it, where there is one
//
// A record is a list of items that end with a zero byte; the last one is empty.
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

extern char** environ;

static void item(FILE* out, const char* text) { fwrite(text, 1, strlen(text) + 1, out); }

static void listDescriptors(FILE* out) {
  DIR* folder = opendir("/proc/self/fd");
  if (folder == NULL) return;
  for (struct dirent* entry; (entry = readdir(folder)) != NULL;) {
    const int number = atoi(entry->d_name);
    if (entry->d_name[0] == '.' || number == dirfd(folder) || number == fileno(out)) continue;
    char path[300], target[4096], text[5000];
    snprintf(path, sizeof path, "/proc/self/fd/%s", entry->d_name);
    const ssize_t length = readlink(path, target, sizeof target - 1);
    target[length < 0 ? 0 : length] = '\0';
    const int flags = fcntl(number, F_GETFL) & (O_ACCMODE | O_APPEND | O_NONBLOCK);
    snprintf(text, sizeof text, "fd %d %d %s", number, flags, target);
    item(out, text);
  }
  closedir(folder);
}

static void listSignals(FILE* out) {
  FILE* status = fopen("/proc/self/status", "re");
  if (status == NULL) return;
  for (char line[8192]; fgets(line, sizeof line, status) != NULL;) {
    if (strncmp(line, "Sig", 3) != 0 && strncmp(line, "Shd", 3) != 0) continue;
    if (strncmp(line, "SigQ", 4) == 0) continue;  // how many the whole user has waiting
    line[strcspn(line, "\n")] = '\0';
    item(out, line);
  }
  fclose(status);
}

static void record(const char* name, int wordCount, char** words) {
  char path[300], text[8192];
  const mode_t mask = umask(0);
  snprintf(path, sizeof path, "/tmp/state-%s", name);
  FILE* out = fopen(path, "ae");
  umask(mask);
  if (out == NULL) exit(99);
  for (int word = 0; word < wordCount; ++word) {
    snprintf(text, sizeof text, "word %s", words[word]);
    item(out, text);
  }
  listDescriptors(out);
  listSignals(out);
  snprintf(text, sizeof text, "umask %04o", mask);
  item(out, text);
  snprintf(text, sizeof text, "ids %d %d", getuid(), getgid());
  item(out, text);
  char place[4096];
  snprintf(text, sizeof text, "cwd %s", getcwd(place, sizeof place) ? place : "?");
  item(out, text);
  for (char** entry = environ; *entry != NULL; ++entry) {
    snprintf(text, sizeof text, "env %s", *entry);
    item(out, text);
  }
  item(out, "");
  fclose(out);
}

#ifdef AS_PLUGIN
#include <bootforge/plugin.h>
static int start(void) {
  record("native", 0, NULL);
  return 0;
}
BOOTFORGE_EXPORT const struct bootforge_metadata metadata = {
    .api_version = 1, .provides = (const char* const[]){NULL}};
BOOTFORGE_EXPORT const struct bootforge_operations operations = {start, NULL};
#else

static char* const kOddEnvironment[] = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin",
                                        "HOME=/",
                                        "EMPTY=",
                                        "TWICE=1",
                                        "TWICE=2",
                                        "NOVALUE",
                                        "=nameless",
                                        "LINES=a\nb",
                                        "odd name=1",
                                        "\xff\xfe=bytes",
                                        NULL};
static const int kExtra[] = {3, 5, 9, 10, 63, 200, 1000};

static void becomeDirty(int wordCount, char** words) {
  if (wordCount < 3) exit(98);
  // The kernel's own calls: the C library keeps two signals for itself.
  struct {
    void* handler;
    unsigned long flags;
    void* restorer;
    unsigned long mask;
  } ignore = {(void*)SIG_IGN, 0, NULL, 0};
  for (int number = 1; number <= 64; ++number) {
    syscall(SYS_rt_sigaction, number, &ignore, NULL, 8);
  }
  const unsigned long all = ~0UL;
  syscall(SYS_rt_sigprocmask, SIG_SETMASK, &all, NULL, 8);
  int pair[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, pair) != 0) exit(98);
  const int file = open("/etc/secret", O_RDWR), folder = open("/", O_RDONLY | O_DIRECTORY);
  if (file < 0 || folder < 0) exit(98);
  // High numbers first: the low ones may be in use here.
  const int high[] = {fcntl(file, F_DUPFD, 2000), fcntl(folder, F_DUPFD, 2000),
                      fcntl(pair[0], F_DUPFD, 2000), fcntl(pair[1], F_DUPFD, 2000)};
  for (size_t place = 0; place < sizeof kExtra / sizeof *kExtra; ++place) {
    if (dup2(high[place % 4], kExtra[place]) < 0) exit(98);
  }
  umask((mode_t)strtol(words[1], NULL, 8));
  execve(words[2], words + 2, kOddEnvironment);
  exit(97);
}

int main(int wordCount, char** words) {
  const char* slash = strrchr(words[0], '/');
  const char* name = slash != NULL ? slash + 1 : words[0];
  if (strcmp(name, "dirty") == 0) becomeDirty(wordCount, words);
  if (strcmp(name, "odd") == 0) execve(words[1], words + 1, kOddEnvironment);
  record(name, wordCount, words);
  char real[4096];
  const int length = slash != NULL ? (int)(slash - words[0]) : 0;
  snprintf(real, sizeof real, "%.*s/real/%s", slash != NULL ? length : 4,
           slash != NULL ? words[0] : "/bin", name);
  if (access(real, X_OK) == 0) execv(real, words);
  return 0;
}
#endif
