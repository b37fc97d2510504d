#pragma once

#include <string>

namespace ferrylink::raknet {

// Where the transport's console lines go: one line per call, without its line end.
class Printer {
public:
    virtual ~Printer() = default;
    virtual void print(const std::string& text) = 0;
};

// Writes each line, followed by a line feed, to standard output, at once;
// within a LineBatch of the printing thread, when the batch ends.
class StandardOutputPrinter : public Printer {
public:
    void print(const std::string& text) override;
};

// While one lives on a thread, the lines StandardOutputPrinter prints there
// wait in the output buffer and leave together when the last one ends: a
// burst of pings costs one write to standard output, not one per line.
class LineBatch {
public:
    LineBatch();
    ~LineBatch();
    LineBatch(const LineBatch&) = delete;
    LineBatch& operator=(const LineBatch&) = delete;
};

}  // namespace ferrylink::raknet
