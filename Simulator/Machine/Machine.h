// The hardware of one machine, and what its processors' instructions reach in it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Simulator/Configuration.h"
#include "Simulator/Journal/Journal.h"
#include "Simulator/Machine/AccessStatistics.h"
#include "Simulator/Machine/CxlFabric.h"
#include "Simulator/Machine/FabricRegisters.h"
#include "Simulator/Machine/Fault.h"
#include "Simulator/Machine/MachineCheck.h"
#include "Simulator/Machine/MemorySystem.h"
#include "Simulator/Machine/MmioSpace.h"
#include "Simulator/Machine/PciSpace.h"
#include "Simulator/Machine/PcieFabric.h"
#include "Simulator/Machine/Processor.h"
#include "Simulator/Machine/RealTimeClock.h"
#include "Simulator/Machine/RootComplexes.h"

namespace Simulator {

class Machine {
 public:
    // Throws std::invalid_argument for a configuration that is no machine.
    Machine(const Configuration& Settings, Journal& Events);
    ~Machine();
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    // The machine that the hardware primitives act on. Calling one without a machine ends the process.
    static Machine& Current();

    const Configuration& Settings() const {
        return Config;
    }
    unsigned ProcessorCount() const {
        return static_cast<unsigned>(Processors.size());
    }
    Processor& ProcessorAt(unsigned Number) {
        return Processors[Number];
    }
    const Processor& ProcessorAt(unsigned Number) const {
        return Processors[Number];
    }
    // Which processor's instructions are running.
    unsigned CurrentProcessor() const {
        return Running;
    }
    void SetCurrentProcessor(unsigned Number) {
        Running = Number;
    }

    const std::vector<RootComplex>& RootComplexes() const {
        return Complexes;
    }
    SmnSpace& SmnOf(std::size_t RootComplexIndex);
    PciSpace& Pci() {
        return PciFunctions;
    }
    // The hierarchies below the root complexes.
    PcieFabric& Pcie() {
        return *Hierarchies;
    }
    CxlFabric& Cxl() {
        return *CxlSides;
    }
    const CxlFabric& Cxl() const {
        return *CxlSides;
    }
    const PcieFabric& Pcie() const {
        return *Hierarchies;
    }
    MmioSpace& Mmio() {
        return MmioRegisters;
    }
    MemorySystem& Dram() {
        return *Memory;
    }
    FabricRegisters& Fabric() {
        return FabricRegisterFile;
    }
    const RealTimeClock& Clock() const {
        return CmosClock;
    }

    // Virtual microseconds since power-on.
    std::uint64_t Now() const {
        return Time;
    }
    // What goes on while the machine is off: the time since the first power-on, and whoever listens to the serial
    // port.
    struct Uninterrupted {
        std::uint64_t Time = 0;
        std::string Serial;
    };
    Uninterrupted SwitchOff() {
        return {Time, std::move(Serial)};
    }
    void SwitchOn(Uninterrupted Before) {
        Time = Before.Time;
        Serial = std::move(Before.Serial);
    }
    // Time passes, and what works by itself works on.
    void Advance(std::uint64_t Microseconds);

    // Hardware logs an error. An exception or interrupt that is the operating system's reaches it at once.
    // Throws std::invalid_argument for a processor, a bank or a status that cannot be.
    void LogMachineCheck(const MachineCheck& Error);
    // An OS access; a write that traps leaves its source pending, takes no effect and returns true.
    std::uint64_t OsReadMsr(unsigned Processor, std::uint32_t Msr);
    bool OsWriteMsr(unsigned Processor, std::uint32_t Msr, std::uint64_t Value);
    // The processors leave SMM: their sources are served, exceptions that were asked for arrive.
    void LeaveSmm();

    // Primitives' side; Width in bits.
    std::uint64_t ReadMmio(std::uint64_t Address, unsigned Width);
    void WriteMmio(std::uint64_t Address, unsigned Width, std::uint64_t Value);
    std::uint8_t ReadIo(std::uint16_t Port);
    void WriteIo(std::uint16_t Port, std::uint8_t Value);
    std::uint64_t ReadMsr(std::uint32_t Msr);
    void WriteMsr(std::uint32_t Msr, std::uint64_t Value);
    CPUID_RESULT Cpuid(std::uint32_t Leaf);

    // Serial port.
    void Print(std::string_view Prefix, std::string_view Message);
    const std::string& SerialOutput() const {
        return Serial;
    }

    AccessStatistics Accesses;

    // Adds an event; its fields are made only while the journal records.
    template <class MakeFields>
    void Note(std::string_view Kind, MakeFields&& Fields) {
        if (Events.IsRecording()) {
            Events.Add(Kind, Time, Fields());
        }
    }
    // The run is at fault: the first fault is thrown once the driver's code has returned.
    void ReportFault(std::string What);
    void ThrowPendingFault();

 private:
    struct EcamTarget {
        PciAddress Where;
        unsigned Register = 0;
    };
    void CheckAlignment(std::uint64_t Address, unsigned Width);
    bool DecodeEcam(std::uint64_t Address, unsigned Width, EcamTarget& Target) const;
    RootComplexFunction* SmnPair(const EcamTarget& Target);
    std::uint64_t ReadPci(const EcamTarget& Target, unsigned Width);
    void WritePci(const EcamTarget& Target, unsigned Width, std::uint64_t Value);
    void BuildProcessors();
    void BuildFabricAndPci();
    void BuildBusRanges();
    void BuildMmio();
    void NoteWrite(std::string_view Space, std::uint64_t Address, unsigned Width, std::uint64_t Value);

    Configuration Config;
    Journal& Events;
    RealTimeClock CmosClock;
    std::vector<Processor> Processors;
    std::vector<RootComplex> Complexes;
    std::vector<RootComplexFunction*> ComplexFunctions;
    std::vector<std::unique_ptr<PciFunction>> HiddenComplexFunctions;
    PciSpace PciFunctions;
    MmioSpace MmioRegisters;
    FabricRegisters FabricRegisterFile;
    std::unique_ptr<PcieFabric> Hierarchies;
    std::unique_ptr<CxlFabric> CxlSides;
    std::unique_ptr<MemorySystem> Memory;
    std::uint64_t Time = 0;
    unsigned Running = 0;
    std::string Serial;
    std::string PendingFault;
};

}  // namespace Simulator
