// Register blocks behind a base address register of a CXL function: registers of 32 bits, which wider accesses read
// and write two at a time.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "Simulator/Machine/CxlRasCapability.h"
#include "Simulator/Machine/CxlSettings.h"
#include "Simulator/Machine/MmioSpace.h"

namespace Simulator {

class CxlRegisterBlock : public MmioDevice {
 public:
    explicit CxlRegisterBlock(std::uint64_t Size) : Size(Size) {}

    // Reserved registers read 0 and take nothing. Narrow writes do not exist.
    std::optional<std::uint64_t> Read(std::uint64_t Offset, unsigned Width) final;
    bool Write(std::uint64_t Offset, unsigned Width, std::uint64_t Value) final;

    // Throws std::invalid_argument for a register outside the block.
    void Patch(const std::vector<CxlRegisterPatch>& Registers);
    std::uint64_t Bytes() const {
        return Size;
    }

 protected:
    // Offset: a multiple of 4 inside the block.
    virtual std::uint32_t ReadRegister(std::uint64_t Offset) = 0;
    virtual void WriteRegister(std::uint64_t Offset, std::uint32_t Value) = 0;

 private:
    std::uint64_t Size;
    std::map<std::uint64_t, std::uint32_t> Patches;
};

// Component registers (CXL 3.0, section 8.2.3): the CXL.cache/CXL.mem block with its capability array.
class CxlComponentRegisters : public CxlRegisterBlock {
 public:
    explicit CxlComponentRegisters(bool HasRas);

    const bool HasRas;
    CxlRasCapability Ras;

 private:
    std::uint32_t ReadRegister(std::uint64_t Offset) override;
    void WriteRegister(std::uint64_t Offset, std::uint32_t Value) override;

    std::map<std::uint64_t, std::uint32_t> Fixed;
};

// Several blocks one after the other in one base address register.
class CxlBar : public MmioDevice {
 public:
    void Add(std::uint64_t Offset, CxlRegisterBlock& Block) {
        Blocks.push_back({Offset, &Block});
    }
    std::optional<std::uint64_t> Read(std::uint64_t Offset, unsigned Width) override;
    bool Write(std::uint64_t Offset, unsigned Width, std::uint64_t Value) override;

 private:
    struct Part {
        std::uint64_t Offset = 0;
        CxlRegisterBlock* Block = nullptr;
    };
    const Part* Find(std::uint64_t Offset, unsigned Width) const;

    std::vector<Part> Blocks;
};

}  // namespace Simulator
