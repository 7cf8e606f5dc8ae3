// Registers of the data fabric, reached by socket, function, offset and instance.
#pragma once

#include <cstdint>
#include <map>
#include <tuple>

namespace Simulator {

class FabricRegisters {
 public:
    void Set(unsigned Socket, unsigned Function, unsigned Offset, unsigned Instance, std::uint32_t Value) {
        Registers[{Socket, Function, Offset, Instance}] = Value;
    }
    // All ones for an absent instance.
    std::uint32_t Read(unsigned Socket, unsigned Function, unsigned Offset, unsigned Instance) const {
        const auto Found = Registers.find({Socket, Function, Offset, Instance});
        return Found == Registers.end() ? 0xFFFFFFFF : Found->second;
    }

 private:
    std::map<std::tuple<unsigned, unsigned, unsigned, unsigned>, std::uint32_t> Registers;
};

}  // namespace Simulator
