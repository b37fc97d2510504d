#include "app/output.h"

#include "foundation/dispatch_queue.h"

namespace ferrylink::app {

void Output::print(const std::string& /*text*/) {
    // The hop stays although the block is empty: lines keep the main queue's
    // pace, as a console that did show them would.
    foundation::DispatchQueue::main().async([] {});
}

}  // namespace ferrylink::app
