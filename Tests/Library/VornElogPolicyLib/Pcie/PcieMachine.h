// A booted machine with functions whose registers a test sets, and what the classification says of them.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Library/VornElogPolicyLib/Pcie/CaptureDeviceState.h"
#include "Library/VornElogPolicyLib/Pcie/DeviceState.h"
#include "Simulator/Machine/Machine.h"
#include "Tests/Library/VornElogPolicyLib/PolicyMachine.h"

// Where the capabilities of every test function lie.
inline constexpr unsigned PM = 0x40, PCIE = 0x50, AER = 0x100, DPC = 0x180;

// Plain registers, read-only but for what a test makes writable. It may die: after so many reads it answers all ones.
class TestFunction : public Simulator::PciFunction {
 public:
    explicit TestFunction(unsigned PortType, bool HasAer = true) {
        Poke(PCI_VENDOR_ID, 4, 0xABCD1234);
        Poke(PCI_STATUS, 2, 0x0010);
        Poke(PCI_CAPABILITIES_POINTER, 1, PM);
        Poke(PM, 4, 0x0003 << 16 | PCIE << 8 | 0x01);
        Poke(PCIE, 4, (PortType << 4 | 2) << 16 | 0x10);
        Poke(PCIE + PCIE_DEVICE_CAPABILITIES, 4, PcieDeviceCapabilities::RoleBasedErrorReporting);
        Poke(PCIE + PCIE_DEVICE_CONTROL, 2, 0x000F);
        if (HasAer) {
            Poke(AER, 4, 0x00020001);
            Poke(AER + AER_UNCORRECTABLE_SEVERITY, 4, 0x00462030);
        }
    }
    // Bus numbers, and the type 1 header that has them.
    TestFunction& MakeBridge(unsigned Secondary, unsigned Subordinate) {
        Poke(PCI_REVISION_ID, 4, 0x06040000);
        Poke(PCI_HEADER_TYPE, 1, 0x01);
        Poke(PCI_PRIMARY_BUS_NUMBER, 4, Subordinate << 16 | Secondary << 8);
        return *this;
    }
    TestFunction& AddDpc(unsigned Capability = 0) {
        Poke(AER, 4, DPC << 20 | 0x00020001);
        Poke(DPC, 4, 0x0001001D);
        Poke(DPC + DPC_CAPABILITY, 2, Capability);
        return *this;
    }
    TestFunction& Set(unsigned Offset, unsigned Width, std::uint32_t Value) {
        Poke(Offset, Width, Value);
        return *this;
    }
    // A base address register that decodes Size bytes (Size 0: none can be set) at Base.
    TestFunction& SetBar(unsigned Index, std::uint32_t Base, std::uint32_t Writable) {
        Poke(PCI_BASE_ADDRESS_0 + 4 * Index, 4, Base);
        SetWritable(PCI_BASE_ADDRESS_0 + 4 * Index, 4, Writable);
        return *this;
    }
    TestFunction& SetHeaderLog(const std::array<std::uint32_t, 4>& Header, unsigned Log = AER + AER_HEADER_LOG) {
        for (unsigned Index = 0; Index < 4; Index++) {
            Poke(Log + 4 * Index, 4, Header[Index]);
        }
        return *this;
    }

    std::uint32_t Read(unsigned Offset, unsigned Width) override {
        return Reads++ < Lifetime ? PciFunction::Read(Offset, Width) : 0xFFFFFFFF;
    }
    void Write(unsigned Offset, unsigned Width, std::uint32_t Value) override {
        if (Reads < Lifetime) {
            Writes++;
            PciFunction::Write(Offset, Width, Value);
        }
    }

    std::uint64_t Reads = 0, Writes = 0;
    std::uint64_t Lifetime = std::numeric_limits<std::uint64_t>::max();  // in reads
};

class PcieMachine : public PolicyMachine {
 public:
    using PolicyMachine::PolicyMachine;

    // On segment 0, where no function of the machine is.
    static constexpr UINT8 ROOT_BUS = 0x0C, BUS = 0x0D;

    template <class... Arguments>
    TestFunction& Add(UINT8 Bus, UINT8 Device, UINT8 Function, Arguments... Setup) {
        auto Made = std::make_unique<TestFunction>(Setup...);
        Added.push_back(Made.get());
        Sim.Machine().Pci().Add({0, Bus, Device, Function}, std::move(Made));
        return *Added.back();
    }
    // Takes all of them out.
    void Clear() {
        for (TestFunction* Function : Added) {
            Function->Lifetime = 0;
        }
    }
    // Whether that was traced since the last call.
    bool TracedSince(const std::string& Text) {
        const std::string Log = Sim.TraceLog();
        return Log.find(Text, std::exchange(TraceSeen, Log.size())) != std::string::npos;
    }
    TestFunction& AddRootPort() {
        return Add(ROOT_BUS, 1, 0, PcieRootPort).MakeBridge(BUS, BUS);
    }
    // The function as it is now; below Upstream, or its own root port.
    PCI_DEVICE_STATE Capture(UINT8 Bus, UINT8 Device, UINT8 Function, PCI_DEVICE_STATE* Upstream = nullptr) {
        PCI_DEVICE_STATE State{};
        const IO_HUB_DATA Hub{};
        const KYR_PCIE_PORT_MAP_ENTRY Port{};
        State.PciAddress = PackPciAddress(0, Bus, Device, Function);
        State.PcieRootPortData.pPciDeviceStateUpstreamRootPort = Upstream;
        EXPECT_EQ(VornElogGetPciDeviceState(&Hub, &Port, &State), EFI_SUCCESS);
        return State;
    }

 private:
    std::vector<TestFunction*> Added;  // the machine's
    std::size_t TraceSeen = 0;
};

// What the flags of a record say: a letter for each class (F fatal, U unsupported request, N non-fatal, K
// correctable, R RP PIO, E containment event, XF XN XK CXL protocol) with D detected, C clear, H handle, + non-fatal
// besides unsupported requests; L legacy with F fatal, P parity, S system error; HOT hot removal; OFF reporting
// switched off.
inline std::string Flags(const PCI_DEVICE_STATE& State) {
    std::string Text;
    const auto Class = [&](const char* Name, std::initializer_list<std::pair<char, UINT8>> Letters) {
        std::string Set;
        for (const auto& [Letter, Flag] : Letters) {
            Set += Flag == FALSE ? "" : std::string(1, Letter);
        }
        Text += Set.empty() ? "" : (Text.empty() ? "" : " ") + std::string(Name) + (Set == "!" ? "" : "." + Set);
    };
    const auto& L = State.LegacyPci;
    const PCIE_ERROR_STATUS& P = State.Pcie.ErrorStatus;
    const CXL_ERROR_STATUS& X = State.Cxl.ErrorStatus;
    Class("HOT", {{'!', P.DetectedHotRemoval}});
    Class("E", {{'D', P.DetectedDpcEvent}, {'C', P.ClearDpcEvent}, {'H', P.HandleDpcEvent}});
    Class("L",
          {{'F', L.DetectedFatal}, {'P', L.DetectedPerr}, {'S', L.DetectedSerr}, {'C', L.Clear}, {'H', L.Handle}});
    Class("R", {{'D', P.DetectedRpPioFatal}, {'C', P.ClearRpPioFatal}, {'H', P.HandleRpPioFatal}});
    Class("XF", {{'D', X.DetectedFatal}, {'C', X.ClearFatal}, {'H', X.HandleFatal}});
    Class("XN", {{'D', X.DetectedNonFatal}, {'C', X.ClearNonFatal}, {'H', X.HandleNonFatal}});
    Class("F", {{'D', P.DetectedFatal}, {'C', P.ClearFatal}, {'H', P.HandleFatal}});
    Class("U",
          {{'D', P.DetectedUnsupportedRequest}, {'C', P.ClearUnsupportedRequest}, {'H', P.HandleUnsupportedRequest}});
    Class("OFF", {{'!', P.UnsupportedRequestScreened}});
    Class("N", {{'D', P.DetectedNonFatal},
                {'C', P.ClearNonFatal},
                {'H', P.HandleNonFatal},
                {'+', P.DetectedNonFatalBesidesUr}});
    Class("XK", {{'D', X.DetectedCorrectable}, {'C', X.ClearCorrectable}, {'H', X.HandleCorrectable}});
    Class("K", {{'D', P.DetectedCorrectable}, {'C', P.ClearCorrectable}, {'H', P.HandleCorrectable}});
    return Text;
}

// TLP headers as a header log has them.
inline constexpr std::array<std::uint32_t, 4> DMTF_MESSAGE = {0x70000004, 0x0000007F, 0x00001AB4, 0},
                                              MEMORY_READ = {0x00000001, 0x000000FF, 0xFE000010, 0};
inline constexpr std::array<std::uint32_t, 4> MemoryWrite(std::uint32_t Address) {
    return {0x40000001, 0x000000FF, Address, 0};
}
