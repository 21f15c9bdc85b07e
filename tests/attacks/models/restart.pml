/* How the CLI executor is started anew by whoever finds it gone: src/cli/hypcli_executor_client.cpp
   and hypcli_executor_server.cpp.

   worker    a worker thread of a run of the program: connects, or restarts under the graph lock
   other     the main thread of another run, whose graph lock is another one
   executor  what start() forks, until it serves; numbers are given again when nothing is left of one

   Executors are killed, KILLS times in all, at any moment; with OTHER_DIES the other run is, too.
   With NO_LOCK_FILE the start lock cannot be had, and there is one run only.

   The lines that begin with "protocol:" name what is modelled here; `run --check` compares them
   with the sources, and says what to do when they differ.

protocol: src/cli/hypcli_executor_client.cpp openConnection ff34e2af2c1e199a
protocol: src/cli/hypcli_executor_client.cpp StartLock fe86509e5df08e53
protocol: src/cli/hypcli_executor_client.cpp HypcliExecutor::isServing a7a6148ccf441828
protocol: src/cli/hypcli_executor_client.cpp HypcliExecutor::start 4581d25f94a7ece1
protocol: src/cli/hypcli_executor_client.cpp HypcliExecutor::connectWithRestarts 68fa7d7dfab421e6
protocol: src/cli/hypcli_executor_server.cpp removeStaleSocket 384bfa7955d53e56
protocol: src/cli/hypcli_executor_server.cpp bindForOwner 9c93d983197b609d
protocol: src/cli/hypcli_executor_server.cpp HypcliExecutor::runChild e13e99beff46e3e1
protocol: src/cli/hypcli_executor_server.cpp HypcliExecutor::serve a02cc1aee4d901a0
protocol: src/cli/hypcli_executor_server.cpp HypcliExecutor::openControlSocket 0fa5b64c8f5a08b7
protocol: src/util/standard_streams.cpp closeOtherDescriptors 7abc2951a71b07df

configuration: OTHER
configuration: OTHER OTHER_DIES
configuration: NO_LOCK_FILE

   Broken variants, one at a time, that have to be caught, in the configuration behind the colon:

variant: NO_START_LOCK: OTHER                    start does not take the start lock
variant: LOCK_ENDS_WITH_PARENT: OTHER OTHER_DIES   the executor does not hold it while it starts
variant: NO_GRAPH_LOCK: NO_LOCK_FILE             workers restart without the graph lock
variant: SERVES_BEFORE_LISTENING: OTHER          the executor detaches itself before it listens
variant: KEEPS_STALE_NAME: OTHER                 the socket of a dead executor is not removed
*/

#ifndef WORKERS
#define WORKERS 4
#endif
#ifndef KILLS
#define KILLS 2
#endif
#define EXECUTORS 4             /* at once, dead ones with a name included */
#define NONE EXECUTORS
#define ATTEMPTS 10

/* The socket of an executor. */
#define FREE 0
#define STARTING 1              /* made, not bound */
#define BOUND 2
#define LISTENING 3
#define DEAD 4                  /* its process is gone */

/* What waitpid says of the first process of an executor. */
#define RUNS 0
#define SUCCEEDED 1
#define FAILED 2

byte socket[EXECUTORS];
byte exit[EXECUTORS];
bool awaited[EXECUTORS];        /* its parent is in waitpid */
bool acts[EXECUTORS];           /* its process below has steps to take */
bool holds[EXECUTORS];          /* it has the locked file open */
byte name = NONE;               /* whose socket has the name in /var/run/nimbus */
bool graphLock;
byte startLock;                 /* how many processes have the locked file open */
byte kills = KILLS;
byte served;
byte looking;                   /* workers, but for the first one */
byte restarting;

#define answers (name != NONE && socket[name] == LISTENING)

#if defined(NO_LOCK_FILE) || defined(NO_START_LOCK)
#define LOCKING false
#else
#define LOCKING true
#endif

/* A number is free again when nobody wants to know anything of a dead executor any more. */
inline forget(number) {
  if
  :: socket[number] == DEAD && name != number && !awaited[number] && !acts[number] ->
     socket[number] = FREE
  :: else
  fi
}

inline letGo(number) {
  if
  :: holds[number] -> holds[number] = false; startLock--
  :: else
  fi
}

/* The process that start() forks, up to where daemon() has sent it into the background. */
proctype executor(byte me) {
  byte stale = NONE;

#ifdef LOCK_ENDS_WITH_PARENT
  atomic { letGo(me) };
#endif
  /* removeStaleSocket */
#ifndef KEEPS_STALE_NAME
  if
  :: socket[me] == DEAD -> goto gone
  :: socket[me] != DEAD && (name == NONE || answers)
  :: socket[me] != DEAD && name != NONE && !answers ->
     atomic {
       if
       :: socket[me] == DEAD -> goto gone
       :: else -> stale = name; name = NONE
       fi;
       if :: stale != NONE -> forget(stale) :: else fi;
       stale = NONE
     }
  fi;
#endif
  atomic {                      /* bind */
    if
    :: socket[me] == DEAD -> goto gone
    :: socket[me] != DEAD && name == NONE -> name = me; socket[me] = BOUND
    :: socket[me] != DEAD && name != NONE ->
       socket[me] = DEAD; exit[me] = FAILED; letGo(me); goto gone
    fi
  }
#ifdef SERVES_BEFORE_LISTENING
  atomic { exit[me] == RUNS -> exit[me] = SUCCEEDED; letGo(me) }
#endif
  atomic {                      /* listen */
    if
    :: socket[me] == DEAD -> goto gone
    :: else -> socket[me] = LISTENING
    fi;
    assert((socket[0] == LISTENING) + (socket[1] == LISTENING) + (socket[2] == LISTENING) +
           (socket[3] == LISTENING) <= 1);
    assert(name == me)          /* nobody could reach it, and it would never end */
  }
  atomic { letGo(me) }
  /* daemon(): the first process ends, the second one serves until it is killed. */
  atomic { if :: exit[me] == RUNS && socket[me] != DEAD -> exit[me] = SUCCEEDED :: else fi }
gone:
  atomic { acts[me] = false; forget(me) }
}

/* kill(2) from outside, of an executor that is starting or serving. A first process that is killed
   after the fork of daemon() leaves the second one. */
proctype killer() {
  byte victim;
  do
  :: kills == 0 || served == WORKERS -> break
  :: kills > 0 ->
     atomic {
       if
       :: victim = 0 :: victim = 1 :: victim = 2 :: victim = 3
       fi;
       if
       :: socket[victim] == STARTING || socket[victim] == BOUND || socket[victim] == LISTENING ->
          kills--;
          socket[victim] = DEAD;
          if :: exit[victim] == RUNS -> exit[victim] = FAILED :: else fi;
          letGo(victim);
          forget(victim)
       :: socket[victim] == LISTENING && exit[victim] == RUNS && !holds[victim] ->
          kills--; exit[victim] = FAILED
       :: else
       fi;
       victim = 0
     }
  od
}

inline takeStartLock() {
  if
  :: atomic { LOCKING && startLock == 0 -> startLock = 1 }
  :: !LOCKING
  fi
}

inline giveStartLock() {
  if
  :: LOCKING -> startLock--
  :: !LOCKING
  fi
}

inline forkExecutor(child) {
  atomic {
    child = 0;
    do
    :: socket[child] == FREE -> break
    :: else -> child++; assert(child < EXECUTORS)
    od;
    socket[child] = STARTING;
    exit[child] = RUNS;
    awaited[child] = true;
    acts[child] = true;
    if :: LOCKING -> holds[child] = true; startLock++ :: !LOCKING fi;
    run executor(child)
  }
}

/* What a worker does that has found nobody to connect to. */
inline restart(child) {
#ifndef NO_GRAPH_LOCK
  atomic { !graphLock -> graphLock = true };
#endif
  takeStartLock();
  if
  :: answers
  :: else ->
     forkExecutor(child);
     atomic { exit[child] != RUNS -> awaited[child] = false; forget(child); child = 0 }
  fi;
  giveStartLock();
#ifndef NO_GRAPH_LOCK
  graphLock = false
#endif
}

/* One of the workers, any of them: it never has to give up. */
proctype worker() {
  byte attempt, child;
  do
  :: answers -> break
  :: else ->
     restart(child);
     attempt++;
     assert(attempt < ATTEMPTS)
  od;
  attempt = 0;
  served++
}

/* The other workers, counted by where they are: each looks, is served, or restarts, one after the
   other because of the graph lock, and looks again. */
proctype lookers() {
  do
  :: atomic { looking > 0 -> looking--; if :: answers -> served++ :: else -> restarting++ fi }
  :: served == WORKERS -> break
  od
}

proctype restarter() {
  byte child;
  do
  :: restarting > 0 -> restart(child); atomic { restarting--; looking++ }
  :: served == WORKERS -> break
  od
}

#ifdef OTHER
inline mayDie() {
#ifdef OTHER_DIES
  if :: goto dead :: skip fi
#else
  skip
#endif
}

/* start() of the main thread of another run. */
proctype other() {
  byte child = NONE;
  takeStartLock();
  mayDie();
  if
  :: answers -> goto dead
  :: else
  fi;
  mayDie();
  forkExecutor(child);
  mayDie();
  exit[child] != RUNS;
  mayDie();
dead:
  atomic {
    if :: child != NONE -> awaited[child] = false; forget(child); child = NONE :: else fi;
    giveStartLock()
  }
}
#endif

init {
  atomic {
    run worker();
    looking = WORKERS - 1;
    run lookers();
    run restarter();
    run killer();
#ifdef OTHER
    run other()
#endif
  }
  served == WORKERS
}
