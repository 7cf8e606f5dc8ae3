// The link of a restricted CXL device, a CXL 1.1 one: its two ends are no PCI functions but root complex register
// blocks in memory (CXL 3.0, sections 8.2.1 and 9.12), with component registers of their own.
#pragma once

#include <cstdint>
#include <map>

#include "Simulator/Machine/CxlRegisterBlock.h"
#include "Simulator/Machine/MmioSpace.h"

namespace Simulator {

class CxlRestrictedPort {
 public:
    // Base: memory address of 256 KiB that belong to this port alone.
    CxlRestrictedPort(MmioSpace& Mmio, std::uint64_t Base);
    ~CxlRestrictedPort();
    CxlRestrictedPort(const CxlRestrictedPort&) = delete;
    CxlRestrictedPort& operator=(const CxlRestrictedPort&) = delete;

    static constexpr std::uint64_t WINDOW_SIZE = 0x40000;

    std::uint64_t DownstreamRcrb() const {
        return Base;
    }

    // The block of one end.
    CxlRegisterBlock& Block(bool IsUpstream) {
        return IsUpstream ? UpstreamBlock : DownstreamBlock;
    }

    CxlComponentRegisters Downstream{true};
    CxlComponentRegisters Upstream{true};

 private:
    // Configuration registers of one end, of which only the first page exists.
    class Rcrb : public CxlRegisterBlock {
     public:
        explicit Rcrb(std::uint64_t ComponentBase);

     private:
        std::uint32_t ReadRegister(std::uint64_t Offset) override;
        void WriteRegister(std::uint64_t, std::uint32_t) override {}

        std::map<std::uint64_t, std::uint32_t> Registers;
    };

    MmioSpace& Mmio;
    std::uint64_t Base;
    Rcrb DownstreamBlock;
    Rcrb UpstreamBlock;
};

}  // namespace Simulator
