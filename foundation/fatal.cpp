#include "foundation/fatal.h"

#include <unistd.h>

#include <cstdlib>

namespace ferrylink::foundation {

void fatalFault(std::string_view message) {
    if (!message.empty()) {
        // write(2) rather than iostreams: this may run on any thread, in any state.
        ssize_t ignored = ::write(STDERR_FILENO, message.data(), message.size());
        ignored = ::write(STDERR_FILENO, "\n", 1);
        (void)ignored;
    }
    std::abort();
}

}  // namespace ferrylink::foundation
