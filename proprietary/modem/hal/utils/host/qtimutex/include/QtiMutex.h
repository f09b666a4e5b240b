// Host stand-in for the chip vendor's mutex library: the part of
// qtimutex::QtiSharedMutex that libkovani_utils uses.
#ifndef QTIMUTEX_QTI_MUTEX_H
#define QTIMUTEX_QTI_MUTEX_H

#include <shared_mutex>

namespace qtimutex {

class __attribute__((visibility("default"))) QtiSharedMutex {
 public:
  QtiSharedMutex();
  ~QtiSharedMutex();
  QtiSharedMutex(const QtiSharedMutex&) = delete;
  QtiSharedMutex& operator=(const QtiSharedMutex&) = delete;

  // Exclusive ownership; not recursive.
  void lock();
  void unlock();

 private:
  std::shared_timed_mutex mutex_;
};

}  // namespace qtimutex

#endif  // QTIMUTEX_QTI_MUTEX_H
