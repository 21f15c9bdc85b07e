#include "platform/poll.h"

#include <sys/epoll.h>

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <list>
#include <memory>
#include <tuple>
#include <utility>

#include "platform/linux/descriptor.h"
#include "platform/log.h"

namespace {

namespace asio = boost::asio;

/// The values by which a registration is known.
using Key = std::tuple<int, int, PollCallback, void*, int>;

class Registration : public std::enable_shared_from_this<Registration> {
 public:
  /// Puts into `failure` why the device cannot be watched, when that comes to be known.
  Registration(asio::io_context& context, boost::system::error_code& failure, Key key)
      : key_(std::move(key)), device_(context), failure_(failure) {}
  // The device is the caller's and stays open.
  ~Registration() { remove(); }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

  /// Throws boost::system::system_error.
  void watch(int device) {
    device_.assign(device);
    wait();
  }

  /// The caller may close the device right afterwards.
  void remove() {
    if (device_.is_open()) device_.release();
  }

  const Key& key() const { return key_; }

 private:
  void wait() {
    device_.async_wait(asio::posix::stream_descriptor::wait_read,
                       [self = shared_from_this()](boost::system::error_code error) {
                         if (!self->device_.is_open()) return;  // removed
                         if (error) {
                           self->failure_ = error;
                         } else {
                           self->serve();
                         }
                       });
  }

  void serve() {
    auto [classSet, flags, callback, clientData, eventType] = key_;
    callback(clientData);
    // Only now: an event that the callback has dealt with must not call it again. And perhaps not
    // at all: the callback may have removed itself.
    if (device_.is_open()) wait();
  }

  const Key key_;
  asio::posix::stream_descriptor device_;
  boost::system::error_code& failure_;
};

struct Loop {
  asio::io_context context;
  asio::executor_work_guard<asio::io_context::executor_type> work{context.get_executor()};
  std::list<std::shared_ptr<Registration>> registrations;
  boost::system::error_code failure;  // of any of them

  auto find(const Key& key) {
    auto entry = registrations.begin();
    while (entry != registrations.end() && (*entry)->key() != key) ++entry;
    return entry;
  }
};

/// 0, or the error number of a descriptor without readable events, such as a regular file's. Asio
/// takes those and never calls back.
int whyUnwatchable(int device) {
  host_linux::Descriptor probe(::epoll_create1(EPOLL_CLOEXEC));
  epoll_event event{EPOLLIN, {}};
  bool watchable = probe && ::epoll_ctl(probe.get(), EPOLL_CTL_ADD, device, &event) == 0;
  return watchable ? 0 : errno;
}

/// Made by Poll_InitDefault and not before, so that the descriptors in it belong to the process
/// that runs the loop and to no parent. Never destroyed: Poll_NotifyChange may come from any
/// thread.
constinit std::atomic<Loop*> theLoop = nullptr;

}  // namespace

void Poll_InitDefault() {
  if (!theLoop) theLoop = new Loop;
}

int Poll_Callback(int classSet, int flags, PollCallback callback, void* clientData, int eventType,
                  int device, void*) {
  Loop* loop = theLoop;
  if (!loop) return ENODEV;
  if (!callback) return EINVAL;
  Key key(classSet, flags, callback, clientData, eventType);
  if (loop->find(key) != loop->registrations.end()) return EEXIST;
  if (int error = whyUnwatchable(device)) return error;
  try {
    auto registration = std::make_shared<Registration>(loop->context, loop->failure, key);
    registration->watch(device);
    loop->registrations.push_back(std::move(registration));
  } catch (const boost::system::system_error& error) {  // out of descriptors
    return error.code().value();
  }
  return 0;
}

bool Poll_CallbackRemove(int classSet, int flags, PollCallback callback, void* clientData,
                         int eventType) {
  Loop* loop = theLoop;
  if (!loop) return false;
  auto entry = loop->find(Key(classSet, flags, callback, clientData, eventType));
  if (entry == loop->registrations.end()) return false;
  (*entry)->remove();
  loop->registrations.erase(entry);
  return true;
}

void Poll_Loop(int, bool* stop, int) {
  Loop* loop = theLoop;
  if (!loop) return;
  // Whoever sets it from another thread does so atomically and then calls Poll_NotifyChange.
  while (!std::atomic_ref(*stop).load() && !loop->failure) loop->context.run_one();
  if (loop->failure) {
    // Nobody would be called back any more. Whoever waits for that is better off without us.
    Log_Level(2, "the poll loop ends, a descriptor cannot be watched: %s\n",
              loop->failure.message().c_str());
  }
}

void Poll_NotifyChange(int) {
  // An event without a meaning of its own makes the loop come round.
  if (Loop* loop = theLoop) asio::post(loop->context, [] {});
}
