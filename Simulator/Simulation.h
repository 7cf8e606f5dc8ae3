// One machine with its firmware and the driver loaded into it. At most one simulation lives in a process at a
// time: the driver's state is one section of the program.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Simulator/Configuration.h"
#include "Simulator/Journal/Journal.h"

namespace Simulator {

class Machine;
class Firmware;

// Registers of one bank as an error leaves them; what is not given is made by the hardware's rules.
struct MachineCheck {
    unsigned Processor = 0;
    unsigned Bank = 0;
    std::uint64_t Status = 0;
    std::optional<std::uint64_t> Addr, Misc0, Misc1, Config, Ipid, Synd, Synd1, Synd2, DeStat, DeAddr;
    std::optional<std::uint64_t> Ip;  // instruction pointer; makes MCG_STATUS say that it is valid
    std::string FruText;
};

// Everything a run can be asked about allocated memory at the end of an SMI or of the run.
struct PoolStatistics {
    std::uint64_t LiveBlocks = 0;
    std::uint64_t LiveBytes = 0;
    std::uint64_t Allocations = 0;  // since boot
    std::uint64_t Frees = 0;
    std::uint64_t PeakBytes = 0;
};

// Hardware accesses made by the driver since the last reset of the counters.
struct AccessStatistics {
    std::uint64_t MsrReads = 0, MsrWrites = 0, PciReads = 0, PciWrites = 0, SmnReads = 0, SmnWrites = 0;
    std::uint64_t MmioReads = 0, MmioWrites = 0, IoReads = 0, IoWrites = 0, Cpuids = 0;
};

// A GHES record as the OS finds it.
struct GhesRecord {
    std::uint32_t Severity = 0;
    std::vector<std::uint8_t> Cper;
};

class Simulation {
 public:
    explicit Simulation(Configuration Settings);
    ~Simulation();
    Simulation(const Simulation&) = delete;
    Simulation& operator=(const Simulation&) = delete;

    // Loads the driver (its state back to the load image), runs its entry point, then signals end of DXE and
    // ready to boot. Returns the entry point's status; after a failure the image counts as unloaded.
    EFI_STATUS Boot();

    // An error happens in hardware: the bank logs it by its rules, counters count, sources become pending. With
    // platform-first handling off, or where the bank is not the firmware's, the OS is told at once.
    void InjectMachineCheck(const MachineCheck& Error);
    // Enters SMM for what is pending. Kind "machine-check" issues the machine-check software SMI.
    // Throws std::invalid_argument for a kind that the machine does not have.
    void RaiseSmi(std::string_view Kind);
    void Wait(std::uint64_t Microseconds);
    // The OS reads or writes an MSR; a write to a trapped register enters SMM and comes back.
    std::uint64_t OsReadMsr(unsigned Processor, std::uint32_t Msr);
    void OsWriteMsr(unsigned Processor, std::uint32_t Msr, std::uint64_t Value);
    // Calls the GUID-addressed SMI handler of that name (gFoo...Guid) with a communication buffer that holds
    // Data. Where, SizeToPass and the pointers can be made bad on purpose.
    struct CommunicationCall {
        std::string Handler;
        std::vector<std::uint8_t> Data;
        enum class Place { Region, Outside, Smram, Straddling, Null } Where = Place::Region;
        bool NullSize = false;
        std::optional<std::uint64_t> Size;  // another size than Data's
    };
    EFI_STATUS CallCommunicationHandler(const CommunicationCall& Call);
    // POST leaves message codes for the BMC and hands over; Count errors are waiting.
    EFI_STATUS HandOverPostErrors(std::uint16_t Count, const std::vector<std::uint8_t>& MessageCodes);
    // A named member starts or stops failing from now on.
    void SetFailure(const std::string& Member, std::optional<Failure> How);
    // From now on exactly these processors do not answer when a procedure is sent to them.
    void SetSilentProcessors(const std::set<unsigned>& Processors);

    Journal& Events();
    const Configuration& Settings() const;
    std::uint64_t Now() const;  // virtual microseconds since power-on
    std::string TraceLog() const;  // serial output
    std::vector<std::uint8_t> SelRaw() const;  // standard 16-byte SEL records
    std::vector<std::vector<std::uint8_t>> LoggedRecords() const;  // every record that entered GHES, in order
    std::vector<std::uint8_t> GhesStatusBlock() const;  // the generic error status block as an OS would find it
    PoolStatistics Pool() const;
    AccessStatistics Accesses() const;
    void ResetAccesses();
    std::uint64_t ReadMsrRaw(unsigned Processor, std::uint32_t Msr) const;  // past cloak and traps
    Simulator::Machine& Machine();
    Simulator::Firmware& Firmware();

 private:
    struct State;
    std::unique_ptr<State> Everything;
};

}  // namespace Simulator
