#include "QtiMutex.h"

namespace qtimutex {

// Out of line so that users import these members from this library, as they
// do from the vendor's on the device.
QtiSharedMutex::QtiSharedMutex() = default;
QtiSharedMutex::~QtiSharedMutex() = default;

void QtiSharedMutex::lock() { mutex_.lock(); }
void QtiSharedMutex::unlock() { mutex_.unlock(); }

}  // namespace qtimutex
