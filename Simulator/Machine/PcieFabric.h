// The PCIe hierarchies of a machine: who lies below whom, how configuration requests find a function, how errors
// travel to the root ports and from there to the IO hubs.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Simulator/Machine/IoHub.h"
#include "Simulator/Machine/PcieError.h"
#include "Simulator/Machine/PcieFunction.h"
#include "Simulator/Machine/PcieSettings.h"

namespace Simulator {

class PcieFabric : public PciRouter, public PcieFunctionObserver {
 public:
    // Hubs: one for each root complex. Throws std::invalid_argument for a description that cannot be built.
    PcieFabric(const PcieSettings& Settings, const std::vector<RootComplex>& Complexes, PciSpace& Space);
    ~PcieFabric() override;
    PcieFabric(const PcieFabric&) = delete;
    PcieFabric& operator=(const PcieFabric&) = delete;

    IoHub& Hub(std::size_t RootComplexIndex) {
        return *Hubs[RootComplexIndex];
    }
    // A function below a root complex; nullptr for a name or an address that none has.
    PcieFunction* Find(std::string_view Name);
    PcieFunction* Find(const PciAddress& Where);
    // Root ports and event collectors, in the order of the port map.
    struct RootPort {
        PcieFunction* Function = nullptr;
        unsigned RootComplex = 0;
        bool CxlCapable = false;
        unsigned CxlMode = 0;
    };
    const std::vector<RootPort>& RootPorts() const {
        return Ports;
    }
    // Every function, bridges before what lies below them.
    void ForEach(const std::function<void(PcieFunction&)>& Do);
    // The slot that the function is plugged into, if any.
    const PcieSlotSetting* SlotOf(const PcieFunction& Function) const;

    // Whether the function has the registers in which such an error shows.
    static bool CanHave(const PcieFunction& Where, const PcieError& Error);
    // An error happens at a function. One that it cannot have leaves no trace.
    void Inject(PcieFunction& Where, const PcieError& Error);
    // The platform's boot firmware lets errors be reported. IsFirmwareFirst: they reach the firmware, too.
    void EnableReporting(bool IsFirmwareFirst);
    void EnableReporting(PcieFunction& Function, bool IsFirmwareFirst) const;
    // Some root complex asks for an SMI.
    bool HasSmiPending() const;

    // What is done to a port or its slot.
    void Remove(PcieFunction& Port, bool IsSurprise);
    void Insert(PcieFunction& Port);
    static bool HasPowerController(const PcieFunction& Port);
    void SetPower(PcieFunction& Port, bool On);  // of a port that has one
    void SetLink(PcieFunction& Port, bool Up);
    // Whether packets get through below the port.
    bool IsLinkUp(const PcieFunction& Port) const {
        return Port.Wire.IsUp;
    }
    // Software has to configure again what was reset; off: it does not, the functions stay as reset leaves them.
    void SetSoftwareRestores(bool Restores) {
        SoftwareRestores = Restores;
    }
    // The n-th configuration read of functions below root complexes, counted from here, kills the function that it
    // is sent to; 0: none does.
    void DieAtRead(std::uint64_t Number) {
        ReadsUntilDeath = Number;
    }

    // Registers appear behind a base address register of the function while it decodes memory and can be reached.
    // Size: bytes that the register decodes. The device must outlive the fabric's use.
    void MapBar(PcieFunction& Function, unsigned Index, std::uint64_t Size, MmioDevice& Device);
    // Accesses there: nothing, or false, where no base address register is or its function has no such register; a
    // function that does not answer reads all ones.
    std::optional<std::uint64_t> ReadMemory(std::uint64_t Address, unsigned Width);
    bool WriteMemory(std::uint64_t Address, unsigned Width, std::uint64_t Value);

    // Time goes on: what was waiting comes up.
    void AdvanceTo(std::uint64_t Now);

    // An interrupt for the operating system: which port's, and what for.
    std::function<void(const PcieFunction& Port, std::string_view What)> OsInterrupt;

 private:
    friend class PcieHierarchyBuilder;
    enum class Severity { Correctable, NonFatal, Fatal };
    struct Packet {
        Severity What = Severity::Correctable;
        std::uint16_t Requester = 0;
        bool ForFirmware = false;  // a correctable one that tells the firmware of containment
    };

    // PciRouter, PcieFunctionObserver.
    void Route() override;
    void NobodyAnswers(PciFunction& Claimed, const PciAddress& Where, unsigned Register, bool IsWrite) override;
    void RoutesChanged() override;
    void Written(PcieFunction& Function, unsigned Offset, unsigned Width, std::uint32_t Value) override;
    void ContainmentWritten(PcieFunction& Port, bool TouchesStatus, std::uint32_t Control);
    void RouteBelow(PcieFunction& Bridge, unsigned First, unsigned Last);
    struct MappedRegister {
        bool IsRouted = false;         // a function's base address register covers it
        MmioDevice* Device = nullptr;  // nullptr where that function does not answer
        std::uint64_t Offset = 0;
    };
    MappedRegister FindRegister(std::uint64_t Address, unsigned Width);

    // Errors.
    void ReportCorrectable(PcieFunction& At, const PcieError& Error);
    void ReportUncorrectable(PcieFunction& At, const PcieError& Error);
    void ReportAdvisory(PcieFunction& At, const PcieError& Error, const TlpWords* Header);
    void ReportSecondary(PcieFunction& At, const PcieError& Error);
    void ReportRpPio(PcieFunction& At, const PcieError& Error);
    void ReportPciStatus(PcieFunction& At, const PcieError& Error);
    void AssertSystemError(PcieFunction& From);
    bool LogUncorrectable(PcieFunction& At, unsigned Bit, const TlpWords* Header);
    bool Enables(PcieFunction& At, Severity What) const;
    void Send(PcieFunction& From, Severity What, bool ForFirmware = false);
    void Travel(PcieFunction& From, Packet Message);
    void ReceiveAtRoot(PcieFunction& Root, const Packet& Message, bool IsInternal);
    bool Asserts(const PcieFunction& Root) const;
    PcieFunction* CollectorOf(const PcieFunction& Integrated);

    // Containment.
    bool CanTrigger(const PcieFunction& Port, Severity What) const;
    void Trigger(PcieFunction& Port, unsigned Reason, unsigned Extension, std::uint16_t Source);
    void SignalContainment(PcieFunction& Port, unsigned Control);

    // Links and slots.
    void UpdateLink(PcieFunction& Port, bool IsSurprise = false);
    bool IsHeldDown(const PcieFunction& Port) const;
    void LinkWentDown(PcieFunction& Port, bool IsSurprise);
    void LinkCameUp(PcieFunction& Port);
    void ResetBelow(PcieFunction& Bridge);
    void SetLinkActive(PcieFunction& Port, bool Active);
    void ApplyStrap(PcieFunction& Port);

    PcieSettings Settings;
    PciSpace& Space;
    std::vector<std::unique_ptr<IoHub>> Hubs;
    std::vector<std::vector<std::unique_ptr<PcieFunction>>> RootBuses;  // by root complex
    std::vector<RootPort> Ports;
    std::vector<std::pair<const PcieFunction*, PcieSlotSetting>> Slots;
    std::vector<PcieFunction*> WithRegisters;  // that have mapped base address registers
    std::vector<PcieFunction*> Training;
    std::uint64_t Now = 0;
    bool SoftwareRestores = true;
};

}  // namespace Simulator
