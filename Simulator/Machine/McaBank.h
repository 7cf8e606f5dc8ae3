// One machine-check bank: its block of 16 registers and the rules by which hardware logs errors in it.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "Include/McaRegisters.h"
#include "Simulator/Machine/MachineCheck.h"

namespace Simulator {

// What an error asks of the processor beyond being logged.
struct BankOutcome {
    bool MachineCheckException = false;  // an enabled uncorrected error
    // Interrupt types of MCA_MISC and MCA_CONFIG: 0 none, 1 to the operating system, 2 SMI.
    std::uint64_t ThresholdInterrupt = 0;
    std::uint64_t DeferredInterrupt = 0;
};

class McaBank {
 public:
    // Registers as reset leaves them. A bank with BlkPtr set in MCA_MISC0 has a second counter in MCA_MISC1.
    void Reset(std::uint64_t Ipid);

    std::uint64_t Read(std::uint32_t Register) const {
        return Registers[Register];
    }
    // Bypasses the rules for software.
    void Set(std::uint32_t Register, std::uint64_t Value) {
        Registers[Register] = Value;
    }
    // Software writes: read-only bits stay, a locked counter stays. False when the register takes only zero.
    bool Write(std::uint32_t Register, std::uint64_t Value);

    // Whether status or deferred status holds a valid error.
    bool HoldsError() const {
        return McaStatus::Val::Get(Registers[MCA_STATUS]) != 0 || McaStatus::Val::Get(Registers[MCA_DESTAT]) != 0;
    }
    bool HasSecondCounter() const {
        return McaMisc::BlkPtr::Get(Registers[MCA_MISC0]) != 0;
    }

    BankOutcome Log(const MachineCheck& Error);

    std::string FruText;

 private:
    void LogStatus(const MachineCheck& Error);
    void LogDeferred(const MachineCheck& Error);
    std::uint64_t CountCorrected(const MachineCheck& Error);

    std::array<std::uint64_t, MCA_REGISTERS_PER_BANK> Registers{};
};

// MCA_IPID of the bank in the machine's own layout; 0 for a bank that is not populated.
std::uint64_t DefaultBankIpid(unsigned Bank);

inline constexpr std::uint64_t MCA_ERROR_COUNTER_LIMIT = 0xFFF;  // the counter stays there and overflows

}  // namespace Simulator
