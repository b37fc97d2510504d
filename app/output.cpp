#include "app/output.h"

#include "foundation/dispatch_queue.h"

namespace ferrylink::app {

void Output::print(const std::string& text) {
    // The hop stays even without an echo: lines keep the main queue's pace,
    // as a console that did show them would, and reach the echo in order
    // with the models' changes.
    foundation::DispatchQueue::main().async([echo = echo_, text] {
        if (echo) {
            echo->print(text);
        }
    });
}

}  // namespace ferrylink::app
