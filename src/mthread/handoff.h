// Meeting points for a caller and the pool workers sharing one job with it: a waiter spins
// briefly (the others are usually about to finish) and then sleeps on a condition variable, so a
// descheduled partner costs no CPU. Internal to the library.
#ifndef BIVISTA_SRC_MTHREAD_HANDOFF_H
#define BIVISTA_SRC_MTHREAD_HANDOFF_H

#include <pthread.h>

#include <atomic>

namespace bivista {

// Some tens of microseconds of polling before a thread sleeps.
constexpr int kSpins = 4000;
inline void CpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  __asm__ __volatile__("yield");
#endif
}

// Workers first .. first + count - 1 of pool whose posted job has not started yet are moved off
// the calling thread's CPU (see mthread.cc). Call right after the boots, before one's own share.
void MoveQueuedOff(void* pool, int first, int count);

// Spins, then sleeps until done() holds; wake() must run under the mutex after the change.
class Waiter {
 public:
  Waiter() = default;
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;
  ~Waiter() {
    pthread_cond_destroy(&cond_);
    pthread_mutex_destroy(&mutex_);
  }
  template <class Done>
  void WaitFor(const Done& done) {
    for (int i = 0; i < kSpins; ++i) {
      if (done()) return;
      CpuRelax();
    }
    pthread_mutex_lock(&mutex_);
    while (!done()) pthread_cond_wait(&cond_, &mutex_);
    pthread_mutex_unlock(&mutex_);
  }
  template <class Change>
  void Wake(const Change& change) {
    pthread_mutex_lock(&mutex_);
    change();
    pthread_cond_broadcast(&cond_);
    pthread_mutex_unlock(&mutex_);
  }

 private:
  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t cond_ = PTHREAD_COND_INITIALIZER;
};

// One-shot: everything written before Set() is visible after Wait() returns.
class Signal {
 public:
  void Set() {
    waiter_.Wake([this] { set_.store(true, std::memory_order_release); });
  }
  void Wait() {
    waiter_.WaitFor([this] { return IsSet(); });
  }
  bool IsSet() const { return set_.load(std::memory_order_acquire); }

 private:
  std::atomic<bool> set_{false};
  Waiter waiter_;
};

}  // namespace bivista

#endif
