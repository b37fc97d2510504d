#pragma once

#include <string>

namespace ferrylink::raknet {

// Where the transport's console lines go: one line per call, without its line end.
class Printer {
public:
    virtual ~Printer() = default;
    virtual void print(const std::string& text) = 0;
};

// Writes each line, followed by a line feed, to standard output.
class StandardOutputPrinter : public Printer {
public:
    void print(const std::string& text) override;
};

}  // namespace ferrylink::raknet
