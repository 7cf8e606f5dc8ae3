// Where something stands in a scenario file, and the error that points there.
#pragma once

#include <stdexcept>
#include <string>

namespace Simulator {

struct SourcePosition {
    std::string File;
    int Line = 0;  // from 1; 0: nowhere in particular
    int Column = 0;

    // "file:line:column"
    std::string Text() const {
        return Line == 0 ? File : File + ":" + std::to_string(Line) + ":" + std::to_string(Column);
    }
};

// A scenario that cannot be understood: "file:line:column: what is wrong, what would be right".
class ScenarioError : public std::runtime_error {
 public:
    ScenarioError(const SourcePosition& Where, const std::string& What)
        : std::runtime_error(Where.Text() + ": " + What) {}
};

}  // namespace Simulator
