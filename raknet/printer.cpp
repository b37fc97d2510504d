#include "raknet/printer.h"

#include <cstdio>

namespace ferrylink::raknet {

namespace {

thread_local int openBatches = 0;
thread_local bool unflushed = false;

}  // namespace

void StandardOutputPrinter::print(const std::string& text) {
    // The loop, the bridge's queue and the main thread all print: a line and
    // its line end go in under one lock, so that no other line lands between.
    flockfile(stdout);
    fwrite_unlocked(text.data(), 1, text.size(), stdout);
    fputc_unlocked('\n', stdout);
    if (openBatches > 0) {
        unflushed = true;
    } else {
        fflush_unlocked(stdout);
    }
    funlockfile(stdout);
}

LineBatch::LineBatch() { ++openBatches; }

LineBatch::~LineBatch() {
    if (--openBatches == 0 && unflushed) {
        unflushed = false;
        std::fflush(stdout);
    }
}

}  // namespace ferrylink::raknet
