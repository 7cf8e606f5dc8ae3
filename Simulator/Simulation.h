// One machine with its firmware and the driver loaded into it. At most one simulation lives in a process at a
// time: the driver's state is one section of the program.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Simulator/Configuration.h"
#include "Simulator/Firmware/MemoryRepair.h"
#include "Simulator/Firmware/MemoryService.h"
#include "Simulator/Firmware/Pool.h"
#include "Simulator/Journal/Journal.h"
#include "Simulator/Machine/AccessStatistics.h"
#include "Simulator/Machine/Fault.h"
#include "Simulator/Machine/MachineCheck.h"

namespace Simulator {

class Machine;
class Firmware;

// What the driver does to memory or hardware that no machine could answer ends the operation during which it
// happened: Fault is thrown once the driver's code has returned.
class Simulation {
 public:
    // Throws std::invalid_argument for a configuration that is no machine or names what does not exist.
    explicit Simulation(const Configuration& Settings);
    ~Simulation();
    Simulation(const Simulation&) = delete;
    Simulation& operator=(const Simulation&) = delete;

    // Loads the driver (its state back to the load image), runs its entry point, then signals end of DXE and
    // ready to boot. Returns the entry point's status; after a failure the image counts as unloaded.
    EFI_STATUS Boot();
    // The machine is switched off and on, and boots as it did before. What is left of the time before: bad rows, what
    // the repair service stored (it is carried out before the driver starts), the BMC's log, what was logged for the
    // OS, pinned translations, journal, serial output and the clock. References into the machine end.
    EFI_STATUS Reboot();

    // An error happens in hardware: the bank logs it by its rules, counters count, sources become pending. With
    // platform-first handling off, or where the bank is not the firmware's, the OS is told at once.
    void InjectMachineCheck(const MachineCheck& Error);
    // Enters SMM for what is pending. Kinds: "machine-check" issues the IO cycle that the machine-check SMI was
    // given; "software-0xNN" is a software SMI of the OS; "root-complex" runs the root complexes' handlers.
    // Throws std::invalid_argument for a kind that the machine does not have.
    void RaiseSmi(std::string_view Kind);
    // Some root complex's hardware asks for that SMI.
    bool IsRootComplexSmiPending() const;
    // Throws std::invalid_argument where the machine would run longer than a hundred years.
    void Wait(std::uint64_t Microseconds);
    // A line of DRAM errs, Count times. Throws std::invalid_argument for a place that no enabled DIMM has.
    void InjectMemoryError(const MemoryError& Error, std::uint64_t Count);
    // From now on an address of a channel translates as given, or not at all.
    void PinTranslation(const ChannelAddress& Where, const std::optional<PinnedTranslation>& To);
    // The PSP ends the repairs that it was given and raises its SMI, if it signals. The status of the SMI's handler;
    // EFI_NOT_STARTED when the PSP has nothing to do.
    EFI_STATUS FinishRuntimeRepair(const RepairOutcome& Outcome);
    // The OS evaluates _OSC of a CXL host bridge: its ACPI code leaves the two doublewords in the CXL policy data and
    // raises the CXL software SMI. The control doubleword that comes back. Without a handler for that SMI everything
    // that the OS asks for is its own.
    std::uint32_t EvaluateCxlOsc(std::uint32_t Support, std::uint32_t Control);
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
    std::uint64_t Now() const;                                     // virtual microseconds since power-on
    std::string TraceLog() const;                                  // serial output
    std::vector<std::uint8_t> SelRaw() const;                      // standard 16-byte SEL records
    std::vector<std::vector<std::uint8_t>> LoggedRecords() const;  // every record that entered GHES, in order
    std::vector<std::uint8_t> GhesStatusBlock() const;  // the generic error status block as an OS would find it
    PoolStatistics Pool() const;
    std::uint64_t BlocksAtBoot() const;  // of the pool, when the last boot was over
    // Blocks that were allocated during the last SMI and outlived it, in order; at boot before the first one.
    std::vector<PoolBlock> BlocksLeftByLastSmi() const;
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
