// One logical processor: where it sits, its model-specific registers, what it saves when it enters SMM.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "Platform/Hardware.h"
#include "Simulator/Machine/McaBank.h"

namespace Simulator {

struct ProcessorLocation {
    unsigned Number = 0;
    unsigned ApicId = 0;
    unsigned Socket = 0;
    unsigned Ccx = 0;   // core complex within the die
    unsigned Core = 0;  // within the complex
    unsigned CoreOfSocket = 0;
    unsigned Thread = 0;  // within the core
};

class Processor {
 public:
    // Signature: CPUID leaf 1 EAX.
    Processor(const ProcessorLocation& Where, unsigned LogicalPerSocket, unsigned Banks, std::uint32_t Signature,
              std::uint64_t MmioCfgBase);

    const ProcessorLocation& Location() const {
        return Place;
    }
    CPUID_RESULT Cpuid(std::uint32_t Leaf) const;

    unsigned BankCount() const {
        return static_cast<unsigned>(Banks.size());
    }
    McaBank& Bank(unsigned Number) {
        return Banks[Number];
    }
    const McaBank& Bank(unsigned Number) const {
        return Banks[Number];
    }

    // The registers as SMM sees them. Nothing for a register that does not exist.
    std::optional<std::uint64_t> ReadMsr(std::uint32_t Msr) const;
    enum class WriteResult { Done, NoSuchRegister, OnlyZeroAllowed };
    WriteResult WriteMsr(std::uint32_t Msr, std::uint64_t Value);

    // The registers as the operating system sees them: those of a cloaked bank read 0 and take no write.
    std::optional<std::uint64_t> OsReadMsr(std::uint32_t Msr) const;
    WriteResult OsWriteMsr(std::uint32_t Msr, std::uint64_t Value);
    // Whether an OS write to the register is held back and raises an SMI: status and deferred status of a bank
    // that firmware manages, in both ranges.
    bool TrapsOsWrite(std::uint32_t Msr) const;

    // Logs the error in its bank. Sources become pending; true when the OS must get a machine-check exception
    // at once because the bank is not hidden from it. Bits of OsInterrupts: the OS's own interrupts.
    bool Log(const MachineCheck& Error, BankOutcome& Outcome);
    // A machine-check exception reaches the operating system.
    void DeliverException();
    // The trap of an OS write: its source and the register number in the save state.
    void PendWriteTrap(std::uint32_t Msr);

    std::uint64_t CloakMask = 0;    // bit n set: the OS does not see bank n
    std::uint64_t ManagedMask = 0;  // bit n set: firmware manages bank n, so OS writes trap
    std::uint64_t SmiSources = 0;   // pending bits of LocalSmiStatus
    bool ExceptionOnExit = false;   // deliver a machine-check exception when SMM is left
    std::uint64_t McgStatus = 0;
    std::uint64_t McgIp = 0;
    std::array<std::uint8_t, 1024> SaveState{};

 private:
    struct BankRegister {
        unsigned Bank;
        std::uint32_t Register;
    };
    static std::optional<BankRegister> Decode(std::uint32_t Msr);
    bool IsCloaked(unsigned Bank) const {
        return Bank < 64 && (CloakMask >> Bank & 1) != 0;
    }

    ProcessorLocation Place;
    unsigned LogicalPerSocket;
    std::uint32_t Signature;
    std::uint64_t MmioCfgBase;
    std::vector<McaBank> Banks;
};

}  // namespace Simulator
