// What another user can do, tried.
//
//   intruder touch FOLDER...         tries to change everything below the folders, and to read what
//                                    is nobody's but root's
//   intruder processes               tries signals, tracing, memory, limits on every process
//   intruder connect SOCKET COUNT    connects so often at a time, for ever, and says how often that
//                                    worked
//   intruder serve SOCKET            listens there and says what it receives
//   intruder swap FOLDER NAME TARGET...   puts one thing after the other in the place of NAME, and
//   of
//                                    what begins with NAME and a point, for ever
//   intruder turn PATH TARGET        puts a link to the target in the place of that folder, and the
//                                    folder back, for ever
//
// What worked is a line of standard output each: "worked: OPERATION PATH".
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <ftw.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static void tell(const char* operation, const char* path) {
  printf("worked: %s %s\n", operation, path);
  fflush(stdout);
}

static void tryTo(const char* operation, int result, const char* path) {
  if (result >= 0) tell(operation, path);
}

static int visit(const char* path, const struct stat* status, int kind, struct FTW* walk) {
  (void)walk;
  if (status->st_uid == getuid()) return 0;
  if (S_ISCHR(status->st_mode)) return 0;  // devices are for everybody
  char other[4400];
  snprintf(other, sizeof other, "%s.intruder", path);
  tryTo("rename", rename(path, other), path);
  tryTo("link", link(path, other), path);
  tryTo("chmod", chmod(path, 0777), path);
  tryTo("chown", lchown(path, getuid(), getgid()), path);
  if (kind == FTW_D || kind == FTW_DP || kind == FTW_DNR) {
    snprintf(other, sizeof other, "%s/intruder", path);
    tryTo("make a file in", open(other, O_WRONLY | O_CREAT, 0600), path);
    tryTo("make a link in", symlink("/etc/secret", other), path);
    tryTo("make a folder in", mkdir(other, 0700), path);
    tryTo("mount on", chroot(path), path);
  } else if (S_ISREG(status->st_mode)) {
    tryTo("write", open(path, O_WRONLY), path);
    tryTo("truncate", truncate(path, 0), path);
    tryTo("lease", fcntl(open(path, O_RDONLY), F_SETLEASE, F_RDLCK), path);
    if ((status->st_mode & 0004) == 0) tryTo("read", open(path, O_RDONLY), path);
  }
  tryTo("remove", remove(path), path);
  return 0;
}

static void tryProcess(int process) {
  char path[100], name[20];
  snprintf(name, sizeof name, "%d", process);
  snprintf(path, sizeof path, "/proc/%d", process);
  struct stat status;
  if (stat(path, &status) != 0 || status.st_uid != 0) return;
  const int signals[] = {SIGTERM, SIGKILL, SIGSTOP, SIGHUP, SIGCONT, SIGUSR1};
  for (size_t place = 0; place < sizeof signals / sizeof *signals; ++place) {
    tryTo("signal", kill(process, signals[place]), name);
  }
  tryTo("trace", (int)ptrace(PTRACE_SEIZE, process, 0, 0), name);
  tryTo("slow down", setpriority(PRIO_PROCESS, (id_t)process, 19), name);
  const struct rlimit none = {3, 3};
  tryTo("limit", prlimit(process, RLIMIT_NOFILE, &none, NULL), name);
  const char* const read[] = {"mem",   "environ", "maps", "fd/1", "root/etc/secret",
                              "stack", "syscall"};
  for (size_t place = 0; place < sizeof read / sizeof *read; ++place) {
    snprintf(path, sizeof path, "/proc/%d/%s", process, read[place]);
    const int file = open(path, O_RDONLY);
    char text[64];
    if (file >= 0 && read[place][0] != 'm') tell("open", path);
    if (file >= 0 && pread(file, text, sizeof text, 0) > 0) tell("read", path);
  }
  const char* const write[] = {"mem",        "oom_score_adj", "coredump_filter", "fd/1",
                               "clear_refs", "comm",          "attr/current"};
  for (size_t place = 0; place < sizeof write / sizeof *write; ++place) {
    snprintf(path, sizeof path, "/proc/%d/%s", process, write[place]);
    const int file = open(path, O_WRONLY);
    if (file >= 0 && pwrite(file, "1", 1, 0) > 0) tell("write", path);
  }
}

static int tryProcesses(void) {
  DIR* folder = opendir("/proc");
  if (folder == NULL) return 1;
  int count = 0;
  for (struct dirent* entry; (entry = readdir(folder)) != NULL;) {
    const int process = atoi(entry->d_name);
    if (process <= 0) continue;
    tryProcess(process);
    ++count;
  }
  printf("%d processes\n", count);
  return 0;
}

static struct sockaddr_un addressOf(const char* path) {
  struct sockaddr_un address = {.sun_family = AF_UNIX};
  snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
  return address;
}

static int connectOften(const char* path, int count) {
  const struct sockaddr_un address = addressOf(path);
  int sockets[1000];
  if (count > 1000) return 1;
  for (int place = 0; place < count; ++place) sockets[place] = -1;
  unsigned long connected = 0, refused = 0;
  struct timespec last = {0}, now;
  for (int place = 0;; place = (place + 1) % count) {
    if (sockets[place] >= 0) close(sockets[place]);
    sockets[place] = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    if (connect(sockets[place], (const struct sockaddr*)&address, sizeof address) == 0) {
      ++connected;
      // Each of them a command, and a word to stop.
      send(sockets[place], connected % 2 != 0 ? "note add --text=intruder" : "stop",
           connected % 2 != 0 ? 24 : 4, MSG_NOSIGNAL);
    } else {
      ++refused;
      const struct timespec pause = {0, 200000};
      nanosleep(&pause, NULL);
    }
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (now.tv_sec != last.tv_sec || connected + refused < 50) {
      printf("%lu connected, %lu refused\n", connected, refused);
      fflush(stdout);
      last = now;
    }
  }
}

static int serve(const char* path) {
  const struct sockaddr_un address = addressOf(path);
  const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
  if (bind(listener, (const struct sockaddr*)&address, sizeof address) != 0) return 1;
  if (listen(listener, 100) != 0) return 1;
  printf("listening\n");
  fflush(stdout);
  for (;;) {
    const int connection = accept(listener, NULL, NULL);
    char text[2000];
    const ssize_t count = recv(connection, text, sizeof text - 1, 0);
    printf("received %zd bytes\n", count);
    fflush(stdout);
    if (count > 0) send(connection, "\0\0\0\0", 4, MSG_NOSIGNAL);
    close(connection);
  }
}

/// One thing after the other in the place of a file. `kind` counts up.
static void place(const char* path, unsigned kind, int targetCount, char** targets) {
  const unsigned kinds = 8;
  const char* target = targetCount > 0 ? targets[kind / kinds % (unsigned)targetCount] : "/";
  char made[4400];
  snprintf(made, sizeof made, "%s-made-%d", path, getpid());
  remove(made);
  int file = -1;
  switch (kind % kinds) {
    case 0:
    case 1:
      if (symlink(target, made) != 0) return;
      break;
    case 2:
      if (mkfifo(made, 0666) != 0) return;
      break;
    case 3:
      file = open(made, O_RDWR | O_CREAT, 0666);
      fchmod(file, 06777);
      break;
    case 4:
      file = open(made, O_RDWR | O_CREAT, 0666);
      if (ftruncate(file, (off_t)1 << 40) != 0) return;
      break;
    case 5:
      if (link(target, made) != 0 && symlink("/dev/zero", made) != 0) return;
      break;
    case 6:
      if (mkdir(made, 0777) != 0) return;
      break;
    default: {  // a name that is root's own file, or nothing
      char sibling[4400];
      snprintf(sibling, sizeof sibling, "%.*s/other.log", (int)(strrchr(path, '/') - path), path);
      if (renameat2(AT_FDCWD, sibling, AT_FDCWD, path, RENAME_EXCHANGE) == 0) return;
      unlink(path);
      return;
    }
  }
  if (file >= 0) close(file);
  if (renameat2(AT_FDCWD, made, AT_FDCWD, path, RENAME_EXCHANGE) != 0) rename(made, path);
  remove(made);
}

_Noreturn static void swapForEver(const char* folder, const char* name, int targetCount,
                                  char** targets) {
  char path[4300];
  const size_t length = strlen(name);
  printf("swapping\n");
  fflush(stdout);
  for (unsigned kind = 0;; ++kind) {
    snprintf(path, sizeof path, "%s/%s", folder, name);
    place(path, kind, targetCount, targets);
    DIR* list = opendir(folder);
    if (list == NULL) continue;
    for (struct dirent* entry; (entry = readdir(list)) != NULL;) {
      if (strncmp(entry->d_name, name, length) != 0 || entry->d_name[length] != '.') continue;
      snprintf(path, sizeof path, "%s/%s", folder, entry->d_name);
      place(path, kind, targetCount, targets);
    }
    closedir(list);
    // Room for root to get somewhere.
    const struct timespec pause = {0, (kind * 7919 % 13) * 20000};
    nanosleep(&pause, NULL);
  }
}

static int turnForEver(const char* path, const char* target) {
  char link[4300];
  snprintf(link, sizeof link, "%s-link", path);
  if (symlink(target, link) != 0) return 1;
  printf("turning\n");
  fflush(stdout);
  for (;;) renameat2(AT_FDCWD, path, AT_FDCWD, link, RENAME_EXCHANGE);
}

int main(int count, char** words) {
  if (getuid() == 0 || count < 2) return 2;
  setsid();  // whoever shares a session may send SIGCONT
  // Whoever starts this ends it; but not never.
  alarm(300);
  if (strcmp(words[1], "touch") == 0) {
    for (int word = 2; word < count; ++word)
      nftw(words[word], &visit, 50, FTW_PHYS | FTW_DEPTH | FTW_MOUNT);
    return 0;
  }
  if (strcmp(words[1], "processes") == 0) return tryProcesses();
  if (strcmp(words[1], "connect") == 0 && count == 4) return connectOften(words[2], atoi(words[3]));
  if (strcmp(words[1], "serve") == 0 && count == 3) return serve(words[2]);
  if (strcmp(words[1], "swap") == 0 && count > 4) {
    swapForEver(words[2], words[3], count - 4, words + 4);
  }
  if (strcmp(words[1], "turn") == 0 && count == 4) return turnForEver(words[2], words[3]);
  return 2;
}
