/* How workers sleep and are woken: Executor of src/graph/executor.cpp, with what it uses of nodes.

   main      schedules every node, in any order, waits for each of them, and stops the workers
   worker    takes a ready node, runs it without the lock, completes it, or sleeps

   Every graph of NODES nodes is covered, and every choice of the ready queue: nodes are not told
   apart but counted by their states. A completion makes any number of others ready, and at least one
   where otherwise nothing could ever become ready: a graph without cycles always has one. A node
   that runs twice shows in the counts.

   A thread may leave a wait for no reason, SPURIOUS times in all. More of it would hide a wake that
   is lost, because somebody would come by anyway.

   The lines that begin with "protocol:" name what is modelled here; `run --check` compares them
   with the sources, and says what to do when they differ.

protocol: src/graph/executor.cpp Executor::Executor 6717e92847a7bad5
protocol: src/graph/executor.cpp Executor::stop 41db82cc86001f16
protocol: src/graph/executor.cpp Executor::enqueue 96c0d9a523681aa3
protocol: src/graph/executor.cpp Executor::wakeWorkerIfNeeded 0129fec45ad43c20
protocol: src/graph/executor.cpp Executor::runOne fa04b27535c578d6
protocol: src/graph/executor.cpp Executor::work 2a7b17466f08b452
protocol: src/graph/ready_queue.h push f8ff99a6732e7276
protocol: src/graph/ready_queue.cpp ReadyQueue::pop 54871a748e586327
protocol: src/graph/node.cpp Node::schedule 912208f94f000f06
protocol: src/graph/node.cpp Node::enter 5dfd089e59bc846e
protocol: src/graph/node.cpp Node::countUnfinished 6e74f53150a47dba
protocol: src/graph/node.cpp Node::queue f0b4785273d03c0c
protocol: src/graph/node.cpp Node::complete 3f3ac9b49e2716b3
protocol: src/graph/node.cpp Node::wait 5b88d4f93beabd83
protocol: src/util/recursive_mutex.h RecursiveMutex 26c7176fbf323491
protocol: src/util/recursive_mutex.cpp Condition::wait 0b2c1533042aeca7

   Broken variants, one at a time, that have to be caught:

variant: NO_WAKE_BEFORE_RUN      who takes a node does not look whether others wait for a worker
variant: SLEEPS_UNCOUNTED        who goes to sleep does not count itself out
variant: SPURIOUS_UNCOUNTED      who is woken for no reason does not count itself in
variant: QUEUES_TWICE            a node that stands in the queue is put there again
variant: STOPS_ONE               stop wakes one worker instead of all
variant: WAITS_UNCOUNTED         who waits for a node does not count itself
*/

#ifndef WORKERS
#define WORKERS 4
#endif
#ifndef NODES
#define NODES 6
#endif
#ifndef SPURIOUS
#define SPURIOUS 2
#endif

bool locked;                    /* the graph lock */

/* Nodes. "Ready": without an unfinished prerequisite. A waiting node is never ready. */
byte idle;                      /* Idle, not ready */
byte idleReady;                 /* Idle, ready */
byte waiting;                   /* ForwardWaiting */
byte queued;                    /* ForwardQueued, in the queue */
byte running;                   /* ForwardQueued, with a worker */
byte done;                      /* ForwardDone */
byte runs;                      /* of nodes, all in all */

/* Threads, as they really are. */
byte awake = WORKERS;           /* workers that look at the queue before they sleep, or not yet began */
byte asleep;                    /* workers in the wait that nobody has woken */
byte leaving;                   /* workers in the wait that somebody has woken */
byte ended;
bool mainSleeps;                /* in the wait for a node */
byte waiters;                   /* as the nodes count them, all together */
byte spurious = SPURIOUS;

/* Threads, as the members of Executor count them. */
byte lookers = WORKERS;
byte sleepers;
byte woken;
bool stopping;

inline lock() { atomic { !locked -> locked = true } }

/* Nobody may give the lock back and leave a ready node behind that a sleeping worker could run, with
   nobody awake who is going to look. */
inline unlock() {
  atomic {
    assert(idle + idleReady + waiting + queued + running + done == NODES);
    assert(queued == 0 || asleep == 0 || awake + leaving > 0);
    assert(!stopping || queued == 0);
    locked = false
  }
}

inline notifyOne() {
  if
  :: asleep > 0 -> asleep--; leaving++
  :: else
  fi
}

inline wakeWorkerIfNeeded() {
  if
  :: queued == 0 || lookers > 0 || sleepers == 0
  :: else -> sleepers--; lookers++; woken++; notifyOne()
  fi
}

inline enqueue() {
  queued++;
  wakeWorkerIfNeeded()
}

/* Some nodes more are ready. Those that wait are queued; idle ones will be when main comes by. */
inline release() {
  do
  :: waiting > 0 -> waiting--; enqueue()
  :: idle > 0 -> idle--; idleReady++
  :: true -> break
  od;
  if
  :: idleReady + queued + running == 0 && waiting > 0 -> waiting--; enqueue()
  :: idleReady + queued + running == 0 && waiting == 0 && idle > 0 -> idle--; idleReady++
  :: else
  fi
}

proctype worker() {
  lock();
  do
  :: stopping -> break
  :: else ->
     if
     :: queued > 0 ->
        atomic {
          queued--; running++; runs++;
          assert(runs <= NODES);
          lookers--; awake--;
#ifndef NO_WAKE_BEFORE_RUN
          wakeWorkerIfNeeded()
#endif
        }
        unlock();
        lock();
        atomic {
          lookers++; awake++;
          running--; done++;
          release();
          /* finished_.notifyAll(): of this node, for which main may be waiting, or not. */
          if
          :: waiters > 0 -> mainSleeps = false
          :: waiters == 0 || done < NODES
          fi
        }
     :: else ->
        atomic {
#ifndef SLEEPS_UNCOUNTED
          lookers--;
#endif
          sleepers++;
          awake--; asleep++
        }
        unlock();
        atomic {
          if
          :: leaving > 0 -> leaving--; awake++
          :: asleep > 0 && spurious > 0 -> asleep--; awake++; spurious--
          fi
        }
        lock();
        atomic {
          if
          :: woken > 0 -> woken--
          :: else ->
#ifndef SPURIOUS_UNCOUNTED
             assert(sleepers > 0);
             sleepers--; lookers++
#else
             skip
#endif
          fi
        }
     fi
  od;
  atomic { awake--; ended++ }
  unlock()
}

init {
  byte i;

  atomic {
    idleReady = 1; idle = NODES - 1;
    do :: idle > 0 -> idle--; idleReady++ :: break od;
    do :: i < WORKERS -> run worker(); i++ :: else -> break od
  }

  /* scheduleForward for every node, in any order; again for those that were an ancestor of an earlier
     one, or never, if they are milestones. */
  do
  :: idle + idleReady > 0 ->
     lock();
     atomic {
       if
       :: idle > 0 -> idle--; waiting++
       :: idleReady > 0 -> idleReady--; enqueue()
#ifdef QUEUES_TWICE
       :: queued > 0 -> enqueue()
#endif
       fi
     }
     unlock()
  :: else -> break
  od;

  /* waitForward for each: those that are done already are passed over. */
  do
  :: lock();
     if
     :: done == NODES -> unlock(); break
     :: else ->
        atomic {
#ifndef WAITS_UNCOUNTED
          waiters++;
#endif
          mainSleeps = true
        }
        unlock();
        !mainSleeps;
        lock();
#ifndef WAITS_UNCOUNTED
        waiters--;
#endif
        unlock()
     fi
  od;

  /* stop */
  lock();
  atomic {
    stopping = true;
#ifdef STOPS_ONE
    notifyOne()
#else
    leaving = leaving + asleep;
    asleep = 0
#endif
  }
  unlock();
  ended == WORKERS;
  assert(runs == NODES && done == NODES)
}
