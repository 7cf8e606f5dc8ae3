#include "Library/VornElogPolicyLib/Pcie/ErrorScan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "Include/PlatformApeiData.h"
#include "Library/VornElogBaseLib/Queue.h"
#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"
#include "Tests/Support/FakeServices.h"
#include "Tests/Support/TestPortMap.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr UINT8 ROOT_BUS = PcieMachine::ROOT_BUS, BUS = PcieMachine::BUS;
constexpr UINT32 ROOT_PORT = 0x00C08000;
constexpr UINT16 ROOT_STATUS = AER + AER_ROOT_ERROR_STATUS;

// A root port of the machine and the port map's entry for it.
class ErrorScan : public testing::Test {
 protected:
    ErrorScan() {
        Hub.BusBase = ROOT_BUS;
        Port.RpPciAddr = ROOT_PORT;
        Root->SetWritable(AER + AER_UNCORRECTABLE_MASK, 4, 0xFFFFFFFF);
        Root->SetWritable(AER + AER_CORRECTABLE_MASK, 4, 0xFFFFFFFF);
        Root->SetWritable(PCIE + PCIE_DEVICE_CONTROL, 2, 0xFFFF);
        Root->SetWriteOneToClear(ROOT_STATUS, 4, 0x7F);
        Root->Poke(ROOT_STATUS, 4, 0x2C);
        Machine.Forget();
    }
    // A function with a malformed TLP to report.
    TestFunction& AddFailing(UINT8 Bus, UINT8 Dev, UINT8 Func, bool IsMultiFunction = false) {
        TestFunction& Function = Machine.Add(Bus, Dev, Func, PcieEndpoint);
        Function.Set(PCI_HEADER_TYPE, 1, IsMultiFunction ? 0x80 : 0x00)
            .Set(PCIE + PCIE_DEVICE_STATUS, 2, 0x0004)
            .Set(AER + AER_UNCORRECTABLE_STATUS, 4, 0x00040000)
            .Set(AER + AER_UNCORRECTABLE_SEVERITY, 4, 0x00040000);
        Function.SetWriteOneToClear(PCIE + PCIE_DEVICE_STATUS, 2, 0xF);
        Function.SetWriteOneToClear(AER + AER_UNCORRECTABLE_STATUS, 4, 0xFFFFFFFF);
        return Function;
    }
    EFI_STATUS Scan() {
        return VornPcieErrorScan(&Hub, &Port);
    }
    std::vector<PCI_DEVICE_STATE*> Queued() {
        std::vector<PCI_DEVICE_STATE*> Records;
        for (const QUEUE_NODE* pNode = QueueHead(Policy.pQueuePciDeviceData); pNode != nullptr;
             pNode = pNode->pNext) {
            Records.push_back(static_cast<PCI_DEVICE_STATE*>(pNode->pData));
        }
        return Records;
    }
    // Packed addresses of what was queued, in order.
    std::vector<UINT32> QueuedAddresses() {
        std::vector<UINT32> Addresses;
        for (const PCI_DEVICE_STATE* pState : Queued()) {
            Addresses.push_back(pState->PciAddress);
        }
        return Addresses;
    }
    // Packed addresses of the registers that were written, in order.
    std::vector<UINT32> Written() {
        std::vector<UINT32> Addresses;
        for (const std::string& Address : Machine.Events("write", "address")) {
            Addresses.push_back(static_cast<UINT32>(std::strtoul(Address.c_str(), nullptr, 16)));
        }
        return Addresses;
    }

    PcieMachine Machine;
    TestFunction* Root = &Machine.AddRootPort();
    IO_HUB_DATA Hub{};
    KYR_PCIE_PORT_MAP_ENTRY Port{};
};

TEST_F(ErrorScan, ProbesWhatMayBeThere) {
    struct Function {
        UINT8 Bus, Dev, Func;
        bool IsMultiFunction;
    };
    struct Row {
        const char* What;
        UINT8 Secondary, Subordinate;
        std::vector<Function> Functions;
        std::vector<UINT32> Queued;  // below the root port
        unsigned Probes;
    };
    const Function Single{0x12, 0, 0, false}, Second{0x12, 0, 1, false};
    // Buses of their own, for functions stay from row to row.
    const Row Rows[] = {
        {"nothing there", 0x10, 0x11, {}, {}, 64},
        {"function 1 of a single-function device", 0x12, 0x12, {Single, Second}, {0x01200000}, 32},
        {"function 0 absent", 0x13, 0x13, {{0x13, 2, 1, false}, {0x13, 2, 7, false}}, {}, 32},
        {"holes", 0x14, 0x14, {{0x14, 3, 0, true}, {0x14, 3, 7, false}}, {0x01418000, 0x0141F000}, 39},
        {"bus by bus", 0x16, 0x18, {{0x18, 0, 0, false}, {0x16, 31, 0, false}}, {0x016F8000, 0x01800000}, 96},
        {"up to bus 0xFF", 0xFE, 0xFF, {{0xFF, 31, 0, false}}, {0x0FFF8000}, 64},
        {"no bus between the two", 0x20, 0x1F, {{0x1F, 0, 0, false}, {0x20, 0, 0, false}}, {}, 0},
    };
    for (const Row& Row : Rows) {
        SCOPED_TRACE(Row.What);
        std::vector<TestFunction*> Functions;
        for (const Function& One : Row.Functions) {
            Functions.push_back(&AddFailing(One.Bus, One.Dev, One.Func, One.IsMultiFunction));
        }
        Root->MakeBridge(Row.Secondary, Row.Subordinate);
        Root->Reads = 0;
        Machine.Sim.ResetAccesses();
        EXPECT_EQ(Scan(), EFI_SUCCESS);
        std::vector<UINT32> Expected = Row.Queued;
        Expected.insert(Expected.begin(), ROOT_PORT);
        EXPECT_EQ(QueuedAddresses(), Expected);
        // What is read besides the root port and the functions themselves are probes of absent ones.
        std::uint64_t OfFunctions = Root->Reads;
        std::size_t Found = 0;
        for (const TestFunction* One : Functions) {
            OfFunctions += One->Reads;
            Found += One->Reads == 0 ? 0 : 1;
        }
        EXPECT_EQ(Found, Row.Queued.size());
        EXPECT_EQ(Machine.Sim.Accesses().PciReads - OfFunctions, Row.Probes - Row.Queued.size());
        VornElogSmmClearPciDeviceStatusQueue();
    }
}

TEST_F(ErrorScan, ClearsTopToBottomAndTheRootStatusLast) {
    TestFunction& First = AddFailing(BUS, 0, 0);
    TestFunction& Second = AddFailing(BUS, 5, 0);
    Root->Set(AER + AER_UNCORRECTABLE_MASK, 4, 0x00400000).Set(AER + AER_CORRECTABLE_MASK, 4, 0x00008000);
    EXPECT_EQ(Scan(), EFI_SUCCESS);
    EXPECT_EQ(First.Peek(AER + AER_UNCORRECTABLE_STATUS, 4), 0u);
    EXPECT_EQ(Second.Peek(PCIE + PCIE_DEVICE_STATUS, 2), 0u);
    EXPECT_EQ(Root->Peek(ROOT_STATUS, 4), 0u);

    std::vector<UINT32> Functions;
    for (const UINT32 Address : Written()) {
        if (Functions.empty() || Functions.back() != (Address & ~UINT32{0xFFF})) {
            Functions.push_back(Address & ~UINT32{0xFFF});
        }
    }
    EXPECT_THAT(Functions, ElementsAre(ROOT_PORT, 0x00D00000, 0x00D28000, ROOT_PORT));
    EXPECT_EQ(Written().back(), ROOT_PORT + ROOT_STATUS);
    // Suppressed around the probes, then as it was.
    EXPECT_THAT(Machine.Events("write", "value"), testing::Contains("0x500000"));
    EXPECT_EQ(Root->Peek(AER + AER_UNCORRECTABLE_MASK, 4), 0x00400000u);
    EXPECT_EQ(Root->Peek(AER + AER_CORRECTABLE_MASK, 4), 0x00008000u);
    EXPECT_EQ(Root->Peek(PCIE + PCIE_DEVICE_CONTROL, 2), 0x000Fu);
}

TEST_F(ErrorScan, RecordsLinkToQueuedRootPorts) {
    AddFailing(BUS, 0, 0);
    ASSERT_EQ(Scan(), EFI_SUCCESS);
    const auto Once = Queued();
    ASSERT_EQ(Once.size(), 2u);
    EXPECT_EQ(Once[0]->PcieRootPortData.pPciDeviceStateUpstreamRootPort, Once[0]);
    EXPECT_EQ(Once[1]->PcieRootPortData.pPciDeviceStateUpstreamRootPort, Once[0]);
    // A second scan in the same SMI leaves no link to memory that is gone.
    AddFailing(BUS, 0, 0);
    ASSERT_EQ(Scan(), EFI_SUCCESS);
    const auto Twice = Queued();
    ASSERT_EQ(Twice.size(), 4u);
    for (const PCI_DEVICE_STATE* pState : Twice) {
        EXPECT_THAT(Twice, testing::Contains(pState->PcieRootPortData.pPciDeviceStateUpstreamRootPort));
    }
}

// Allocations of the scan: the root port's record, its copy and node in the queue; the same for each function. What
// could not be queued is not cleared, so that it is reported later.
TEST_F(ErrorScan, MemoryRunsOutAnywhere) {
    constexpr UINT32 FIRST = 0x00D00000, SECOND = 0x00D08000;
    const struct {
        std::uint64_t Failing;
        std::vector<UINT32> Queued;
        bool IsFirstCleared, IsSecondCleared;
    } Rows[] = {
        {1, {}, false, false},
        {2, {FIRST, SECOND}, true, true},
        {4, {ROOT_PORT, SECOND}, false, true},
        {5, {ROOT_PORT, SECOND}, false, true},
        {7, {ROOT_PORT, FIRST}, true, false},
    };
    for (const auto& Row : Rows) {
        SCOPED_TRACE(Row.Failing);
        const TestFunction& First = AddFailing(BUS, 0, 0);
        const TestFunction& Second = AddFailing(BUS, 1, 0);
        Root->Set(ROOT_STATUS, 4, 0x04);
        FakeServices Pool;
        Pool.FailAllocation = Row.Failing;
        EXPECT_EQ(Scan(), Row.Failing == 1 ? EFI_OUT_OF_RESOURCES : EFI_SUCCESS);
        EXPECT_EQ(QueuedAddresses(), Row.Queued);
        for (const PCI_DEVICE_STATE* pState : Queued()) {
            EXPECT_EQ(pState->PcieRootPortData.pPciDeviceStateUpstreamRootPort,
                      Row.Queued[0] == ROOT_PORT ? Queued()[0] : nullptr);
        }
        EXPECT_EQ(First.Peek(AER + AER_UNCORRECTABLE_STATUS, 4) == 0, Row.IsFirstCleared);
        EXPECT_EQ(Second.Peek(AER + AER_UNCORRECTABLE_STATUS, 4) == 0, Row.IsSecondCleared);
        EXPECT_EQ(Root->Peek(ROOT_STATUS, 4), Row.Failing == 1 ? 0x04u : 0u);
        EXPECT_EQ(VornElogSmmClearPciDeviceStatusQueue(), EFI_SUCCESS);
        EXPECT_EQ(Pool.LiveBlocks, 0u);
    }
}

TEST_F(ErrorScan, TakesThePortsThatAreMeant) {
    TestPortMap Ports;
    Ports.Set({{0x00C08000}, {0x00C10000}, {0x01C18000}, {0x10C20000}, {0x00C08000}});
    auto* const pEntry = const_cast<RB_BUS_ENTRY*>(RbBusEntries(mRbBusMap)) + 1;
    pEntry->RbSeg = 0;
    pEntry->RbBusBase = ROOT_BUS;
    mPlatformApeiData->PciMapValid = 0;
    EXPECT_EQ(PcieErrorScanHelper(1, &Hub, SCAN_ALL_ROOT_PORTS), EFI_NOT_FOUND);
    mPlatformApeiData->PciMapValid = 1;
    EXPECT_EQ(PcieErrorScanHelper(1, nullptr, SCAN_ALL_ROOT_PORTS), EFI_INVALID_PARAMETER);
    EXPECT_EQ(PcieErrorScanHelper(0xFF, &Hub, SCAN_ALL_ROOT_PORTS), EFI_INVALID_PARAMETER);
    EXPECT_THAT(QueuedAddresses(), IsEmpty());

    for (const UINT8 Device : {2, 3, 4}) {
        Machine.Add(ROOT_BUS, Device, 0, PcieRootPort).MakeBridge(0, 0);
    }
    Machine.Sim.Machine().Pci().Add({1, ROOT_BUS, 4, 0}, std::make_unique<TestFunction>(PcieRootPort));
    Root->MakeBridge(0, 0);
    const std::pair<UINT32, std::vector<UINT32>> Rows[] = {
        {SCAN_ALL_ROOT_PORTS, {0x00C08000, 0x00C10000, 0x00C08000}},  // in the order of the map
        {0x00C10000, {0x00C10000}},
        {0x10C20000, {0x10C20000}},
        {0x00C18000, {}},  // there is such a function, but no such port
    };
    for (const auto& [RpPciAddr, Expected] : Rows) {
        SCOPED_TRACE(RpPciAddr);
        EXPECT_EQ(PcieErrorScanHelper(1, &Hub, RpPciAddr), EFI_SUCCESS);
        EXPECT_EQ(QueuedAddresses(), Expected);
        VornElogSmmClearPciDeviceStatusQueue();
    }
    // One port that fails does not keep the next from being scanned.
    FakeServices Pool;
    Pool.FailAllocation = 1;
    EXPECT_EQ(PcieErrorScanHelper(1, &Hub, SCAN_ALL_ROOT_PORTS), EFI_SUCCESS);
    EXPECT_THAT(QueuedAddresses(), ElementsAre(0x00C10000, 0x00C08000));
    VornElogSmmClearPciDeviceStatusQueue();
}

}  // namespace
