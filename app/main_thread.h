#pragma once

#include "foundation/dispatch_queue.h"
#include "foundation/fatal.h"

namespace ferrylink::app {

// The app's models belong to the main queue. Debug builds check it at every
// read and write of a published field and at every action.
inline void assertMainThread() {
#ifndef NDEBUG
    if (!foundation::DispatchQueue::main().isCurrent()) {
        foundation::fatalFault("app model touched off the main queue");
    }
#endif
}

}  // namespace ferrylink::app
