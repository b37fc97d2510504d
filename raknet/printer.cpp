#include "raknet/printer.h"

#include <cstdio>

namespace ferrylink::raknet {

namespace {

thread_local int openBatches = 0;
thread_local bool unflushed = false;

}  // namespace

void StandardOutputPrinter::print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
    if (openBatches > 0) {
        unflushed = true;
    } else {
        std::fflush(stdout);
    }
}

LineBatch::LineBatch() { ++openBatches; }

LineBatch::~LineBatch() {
    if (--openBatches == 0 && unflushed) {
        unflushed = false;
        std::fflush(stdout);
    }
}

}  // namespace ferrylink::raknet
