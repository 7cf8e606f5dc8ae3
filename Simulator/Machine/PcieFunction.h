// One PCI function: configuration registers that behave as its capabilities say (PCI Express Base 6.0, chapter 7).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Include/PciRegisters.h"
#include "Simulator/Machine/MmioSpace.h"
#include "Simulator/Machine/PciSpace.h"

namespace Simulator {

class IoHub;
class PcieFunction;

// What a write to a function's registers can set off.
class PcieFunctionObserver {
 public:
    virtual ~PcieFunctionObserver() = default;
    // Which buses are decoded, or who can be reached, may have changed.
    virtual void RoutesChanged() = 0;
    // Software has written Value at Offset of the function; Width in bytes.
    virtual void Written(PcieFunction& Function, unsigned Offset, unsigned Width, std::uint32_t Value) = 0;

    // Counts configuration reads down: the function that is read when it reaches 0 dies. 0: none does.
    std::uint64_t ReadsUntilDeath = 0;
};

class PcieFunction : public PciFunction {
 public:
    PcieFunction(PcieFunctionObserver& Observer, std::string Name) : Observer(Observer), Name(std::move(Name)) {}

    // Software's accesses. A function that has died answers all ones and takes nothing.
    std::uint32_t Read(unsigned Offset, unsigned Width) override;
    void Write(unsigned Offset, unsigned Width, std::uint32_t Value) override;

    // ---- Making one

    // Room for a capability behind those that are there, linked to the end of its list; the offset. Size in bytes,
    // header and all.
    unsigned AddCapability(std::uint8_t Id, unsigned Size);
    unsigned AddExtendedCapability(std::uint16_t Id, unsigned Version, unsigned Size);
    // Finds the capabilities in the bytes and gives every register that the standard knows its access rules. To be
    // called once the bytes are complete; a list that loops is walked once around.
    void DeriveRules();
    // Base address register Index (0 to 5) decodes Size bytes; 0: none, it cannot be written.
    void SetBar(unsigned Index, std::uint64_t Base, std::uint64_t Size, std::uint32_t Flags);
    // Registers that survive a reset; bytes.
    void KeepThroughReset(unsigned Offset, unsigned Size) {
        Sticky.emplace_back(Offset, Size);
    }
    // The registers as they are now are what a reset leaves.
    void RememberReset();
    // Conventional reset: registers as they were remembered, but the sticky ones. KeepsConfiguration: what software
    // had written is there again, for it writes it again.
    void Reset(bool KeepsConfiguration);

    // Offsets of the capabilities; 0 where there is none.
    struct Offsets {
        unsigned Pcie = 0, PowerManagement = 0, SubsystemId = 0;
        unsigned Aer = 0, Dpc = 0, Sfi = 0, SecondaryPcie = 0, SerialNumber = 0;
    };
    const Offsets& Has() const {
        return At;
    }

    // ---- What it is

    bool IsPcie() const {
        return At.Pcie != 0;
    }
    unsigned PortType() const;  // PCIE_DEVICE_PORT_TYPE; above 15 without the PCI Express capability
    bool IsRootPort() const {
        return PortType() == PcieRootPort;
    }
    bool IsEventCollector() const {
        return PortType() == PcieRootComplexEventCollector;
    }
    bool IsDownstreamPort() const {
        return PortType() == PcieRootPort || PortType() == PcieSwitchDownstreamPort;
    }
    bool IsBridge() const {
        return (Peek(PCI_HEADER_TYPE, 1) & 0x7F) == PciHeaderType::Type1;
    }
    bool IsRoleBased() const;
    bool HasRootPortExtensions() const;
    unsigned SecondaryBus() const {
        return Peek(PCI_SECONDARY_BUS_NUMBER, 1);
    }
    unsigned SubordinateBus() const {
        return Peek(PCI_SUBORDINATE_BUS_NUMBER, 1);
    }
    bool IsInD3Hot() const;
    // The port holds its link down since an error triggered containment.
    bool IsContained() const;

    // ---- Registers of capabilities, by their offset in the capability, past the rules for software

    std::uint32_t Pcie(unsigned Register, unsigned Width) const {
        return Peek(At.Pcie + Register, Width);
    }
    std::uint32_t Aer(unsigned Register) const {
        return Peek(At.Aer + Register, 4);
    }
    std::uint32_t Dpc(unsigned Register, unsigned Width) const {
        return Peek(At.Dpc + Register, Width);
    }

    // ---- Where it is

    const std::string& GivenName() const {
        return Name;
    }
    // As routing sees it now; on a bus that nobody decodes, the bus number is 0.
    PciAddress Where() const;
    std::uint16_t RequesterId() const;

    PcieFunction* Above = nullptr;  // the bridge on whose secondary bus it lies; nullptr on a root bus
    std::vector<std::unique_ptr<PcieFunction>> Below;
    IoHub* Hub = nullptr;  // of its root complex
    unsigned HubPort = 0;  // of the root port or event collector that it is or lies behind
    unsigned Segment = 0;
    unsigned RootBus = 0;  // of the root complex
    unsigned Device = 0;
    unsigned Function = 0;
    bool IsSetUpByFirmware = true;  // boot firmware enables its error reporting

    // ---- What becomes of it

    // It answers that many configuration reads more, and dies.
    void DieAfter(std::uint64_t Reads) {
        ReadsLeft = Reads;
        IsDying = true;
    }
    void Revive() {
        IsDying = false;
    }
    bool IsDead() const {
        return IsDying && ReadsLeft == 0;
    }

    // The link below a port, apart from what its registers say of it.
    struct Link {
        bool IsPresent = true;  // something is plugged in
        bool IsForcedDown = false;
        bool NeverTrains = false;
        std::uint64_t Training = 0;  // microseconds until it is up, from when nothing keeps it down any more
        std::uint64_t UpAt = 0;      // virtual time
        bool IsUp = true;
    };
    Link Wire;

    // Base address registers with registers behind them.
    struct MappedBar {
        unsigned Index = 0;
        std::uint64_t Size = 0;
        MmioDevice* Device = nullptr;
        std::uint64_t AssignedBase = 0;  // by the boot firmware, whose bridge windows lead there
    };
    void MapBar(unsigned Index, std::uint64_t Size, MmioDevice& Device) {
        Mapped.push_back({Index, Size, &Device, BarBase(Index)});
    }
    const std::vector<MappedBar>& MappedBars() const {
        return Mapped;
    }
    // Where the register decodes now, its upper half in it.
    std::uint64_t BarBase(unsigned Index) const;

 private:
    void DeriveHeaderRules();
    void DeriveCapabilityRules(unsigned Id, unsigned Offset);
    void DeriveExtendedRules(unsigned Id, unsigned Offset);
    bool TakesWrites(unsigned Offset) const;

    PcieFunctionObserver& Observer;
    std::string Name;
    Offsets At;
    std::vector<std::pair<unsigned, unsigned>> Sticky;
    std::vector<std::uint8_t> AtReset;
    std::vector<MappedBar> Mapped;
    unsigned LastCapability = 0, NextCapability = PciCapabilityHeader::LowestPointer;
    unsigned LastExtended = 0, NextExtended = PcieExtendedCapabilityHeader::FirstOffset;
    std::uint64_t ReadsLeft = 0;
    bool IsDying = false;
};

}  // namespace Simulator
