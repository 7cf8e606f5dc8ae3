// The run did something that the machine cannot answer: an access that nothing maps, memory written behind a
// block's end, a jump into an unloaded image.
#pragma once

#include <stdexcept>

namespace Simulator {

class Fault : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace Simulator
