#include "raknet/printer.h"

#include <cstdio>

namespace ferrylink::raknet {

void StandardOutputPrinter::print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

}  // namespace ferrylink::raknet
