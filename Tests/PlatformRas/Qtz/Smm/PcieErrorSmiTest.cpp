#include "PlatformRas/Qtz/Smm/PcieErrorSmi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Include/PciDeviceState.h"
#include "Include/PlatformApeiData.h"
#include "Library/RasLib/Globals.h"
#include "Library/VornElogBaseLib/Queue.h"
#include "PlatformRas/Qtz/Smm/Registration.h"
#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"
#include "Tests/Support/TestPortMap.h"

namespace {

// The three registers of one root complex. Its own device each, for they do not lie together.
class StatusPair : public Simulator::SmnDevice {
 public:
    std::optional<std::uint32_t> Read(std::uint32_t Register) const override {
        return Register == 0 ? Status : StatusHi;
    }
    bool Write(std::uint32_t Register, std::uint32_t Value) override {
        if (Register == 4) {
            Written.push_back(Value);
            StatusHi &= ~Value;
        }
        return Register == 4;
    }
    std::uint32_t Status = 0, StatusHi = 0;
    std::vector<std::uint32_t> Written;
};

class SoftwareSmi : public Simulator::SmnDevice {
 public:
    std::optional<std::uint32_t> Read(std::uint32_t) const override {
        return Control;
    }
    bool Write(std::uint32_t, std::uint32_t Value) override {
        Written.push_back(Value);
        return true;
    }
    std::uint32_t Control = 0;
    std::vector<std::uint32_t> Written;
};

// NBIO, IOHC and the addresses of their registers, worked out by hand.
struct Place {
    UINT8 Nbio, Iohc;
    std::uint32_t Status, SwSmiCntl;
};
constexpr Place PLACES[] = {
    {0, 0, 0x13B20020, 0x13B1010C}, {0, 1, 0x1D420020, 0x1D41010C}, {0, 2, 0x13C20020, 0x13C1010C},
    {0, 3, 0x1D520020, 0x1D51010C}, {1, 0, 0x13D20020, 0x13D1010C}, {1, 1, 0x1D620020, 0x1D61010C},
    {1, 2, 0x13E20020, 0x13E1010C}, {1, 3, 0x1D720020, 0x1D71010C},
};
constexpr std::size_t HUBS = std::size(PLACES);

class PcieErrorSmi : public testing::Test {
 protected:
    PcieErrorSmi() {
        auto* const pEntries = const_cast<RB_BUS_ENTRY*>(RbBusEntries(mRbBusMap));
        for (std::size_t At = 0; At < HUBS; At++) {
            pEntries[At].Nbio = PLACES[At].Nbio;
            pEntries[At].Iohc = PLACES[At].Iohc;
            Simulator::SmnSpace& Smn = Machine.Sim.Machine().SmnOf(At);
            Smn.MapDevice(PLACES[At].Status, 8, Status[At]);
            Smn.MapDevice(PLACES[At].SwSmiCntl, 4, Software[At]);
        }
        // Bytes 2 to 4 of an entry travel with its errors.
        std::memcpy(pEntries[2].Producer2, "\x77\x88\x99", 3);
        Ports.Set({});
        Machine.Forget();
    }
    // A failing endpoint below device 0x1A of the root complex's bus.
    UINT32 AddFailing(std::size_t Hub) {
        const UINT8 RootBus = RbBusEntries(mRbBusMap)[Hub].RbBusBase;
        const auto Bus = static_cast<UINT8>(RootBus + 0x1E);
        TestFunction& Port = Machine.Add(RootBus, 0x1A, 0, PcieRootPort).MakeBridge(Bus, Bus);
        Port.SetWritable(PCIE + PCIE_DEVICE_CONTROL, 2, 0xF);
        TestFunction& Function = Machine.Add(Bus, 0, 0, PcieEndpoint);
        Function.Set(AER + AER_UNCORRECTABLE_STATUS, 4, 0x00040000).Set(PCIE + PCIE_DEVICE_STATUS, 2, 0x0004);
        Function.SetWriteOneToClear(AER + AER_UNCORRECTABLE_STATUS, 4, 0xFFFFFFFF);
        Function.SetWriteOneToClear(PCIE + PCIE_DEVICE_STATUS, 2, 0xF);
        return PackPciAddress(0, RootBus, 0x1A, 0);
    }
    // One SMI: the dispatcher calls every handler.
    void RaiseSmi() {
        const RB_BUS_ENTRY* pEntries = RbBusEntries(mRbBusMap);
        for (std::size_t At = 0; At < HUBS; At++) {
            const FCH_SMM_APU_RAS_REGISTER_CONTEXT Context = {pEntries[At].Socket,  0, pEntries[At].RbBusBase, 0,
                                                              pEntries[At].RbIndex, 0};
            EXPECT_EQ(KyrPcieLegacyRasSmiCallback(nullptr, &Context), EFI_SUCCESS);
            EXPECT_EQ(NumPcieRbCallbacksProcessed, (At + 1) % HUBS);
        }
        EXPECT_EQ(PciErrorsDetected, 0);
        EXPECT_EQ(QueueHead(Policy.pQueuePciDeviceData), nullptr);
    }
    std::size_t Traces(const std::string& Text) {
        const std::string Log = Machine.Sim.TraceLog();
        std::size_t Count = 0;
        for (std::size_t At = Log.find(Text); At != std::string::npos; At = Log.find(Text, At + 1)) {
            Count++;
        }
        return Count;
    }

    PcieMachine Machine;
    StatusPair Status[HUBS];
    SoftwareSmi Software[HUBS];
    TestPortMap Ports;
};

TEST_F(PcieErrorSmi, StatusDecidesWhatHappens) {
    struct Row {
        const char* What;
        std::uint32_t Status, StatusHi, Control;
        bool IsScanned;
        std::vector<std::uint32_t> HiWritten, ControlWritten;
    };
    const Row Rows[] = {
        {"protocol error of port 0", 0, 0x00000001, 0x2, true, {0x1}, {}},
        {"protocol errors, and bits that are none", 0, 0xFFE00000, 0x2, true, {0x00200000}, {}},
        {"bits that are none", 0xFFFFFDFF, 0xFFC00000, 0x2, false, {}, {}},
        {"CXL component event", 0x200, 0, 0xABCD0002, true, {}, {0xABCD0002}},
        {"both", 0x200, 0x00000030, 0x2, true, {0x30}, {0x2}},
        {"another interrupt of the MPIO", 0x200, 0, 0xFFFFFFFD, false, {}, {}},
    };
    for (std::size_t Hub = 0; Hub < HUBS; Hub++) {
        Ports.Set({{AddFailing(Hub)}});
        for (const Row& Row : Rows) {
            SCOPED_TRACE(testing::Message() << "root complex " << Hub << ", " << Row.What);
            AddFailing(Hub);
            Status[Hub].Status = Row.Status;
            Status[Hub].StatusHi = Row.StatusHi;
            Software[Hub].Control = Row.Control;
            const std::size_t Ends = Traces("KyrPcieLegacyRasSmiCallback: PCIe post-processing complete\n");
            Machine.Forget();
            RaiseSmi();
            EXPECT_EQ(Status[Hub].Written, Row.HiWritten);
            EXPECT_EQ(Software[Hub].Written, Row.ControlWritten);
            EXPECT_EQ(Machine.Events("record", "section").size(), Row.IsScanned ? 1u : 0u);
            EXPECT_EQ(Traces("KyrPcieLegacyRasSmiCallback: PCIe post-processing complete\n") - Ends,
                      Row.IsScanned ? 1u : 0u);
            Status[Hub].Written.clear();
            Software[Hub].Written.clear();
        }
        Status[Hub].Status = 0;
        Status[Hub].StatusHi = 0;
    }
}

TEST_F(PcieErrorSmi, HubThatCannotBeFoundCountsAllTheSame) {
    const FCH_SMM_APU_RAS_REGISTER_CONTEXT Context = {0, 0, 0, 0, 4, 0};  // an IO hub that the map does not have
    Status[0].StatusHi = 1;
    EXPECT_EQ(KyrPcieLegacyRasSmiCallback(nullptr, &Context), EFI_SUCCESS);
    EXPECT_EQ(NumPcieRbCallbacksProcessed, 1u);
    EXPECT_TRUE(Status[0].Written.empty());
}

TEST_F(PcieErrorSmi, RecordsCarryTheBusMapsBytes) {
    Ports.Set({{AddFailing(2)}});
    Status[2].StatusHi = 1;
    const RB_BUS_ENTRY& Entry = RbBusEntries(mRbBusMap)[2];
    const FCH_SMM_APU_RAS_REGISTER_CONTEXT Context = {Entry.Socket, 0, Entry.RbBusBase, 0, Entry.RbIndex, 0};
    EXPECT_EQ(KyrPcieLegacyRasSmiCallback(nullptr, &Context), EFI_SUCCESS);
    EXPECT_EQ(PciErrorsDetected, 1);
    ASSERT_NE(QueueHead(Policy.pQueuePciDeviceData), nullptr);
    const auto& Hub =
        static_cast<PCI_DEVICE_STATE*>(QueueHeadData(Policy.pQueuePciDeviceData))->PcieRootPortData.IoHubData;
    const UINT8 Expected[] = {Entry.Socket, 1, Entry.Die, Entry.RbIndex, 0x77, 0x88, 0x99, 0, 2, 0, Entry.RbBusBase};
    EXPECT_EQ(std::memcmp(&Hub, Expected, sizeof(Expected)), 0);
}

}  // namespace
