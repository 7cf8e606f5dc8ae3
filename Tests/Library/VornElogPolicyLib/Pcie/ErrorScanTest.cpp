#include "Library/VornElogPolicyLib/Pcie/ErrorScan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "Include/PlatformApeiData.h"
#include "Library/VornElogBaseLib/Queue.h"
#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"
#include "Tests/Support/FakeServices.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
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
    // Buses of their own, for functions stay from row to row.
    const Row Rows[] = {
        {"nothing there", 0x10, 0x11, {}, {}, 64},
        {"function 1 of a single-function device",
         0x12,
         0x12,
         {{0x12, 0, 0, false}, {0x12, 0, 1, false}},
         {0x01200000},
         32},
        {"function 0 absent", 0x13, 0x13, {{0x13, 2, 1, false}, {0x13, 2, 7, false}}, {}, 32},
        {"holes",
         0x14,
         0x14,
         {{0x14, 3, 0, true}, {0x14, 3, 3, false}, {0x14, 3, 7, false}},
         {0x01418000, 0x0141B000, 0x0141F000},
         39},
        {"all of a device", 0x15, 0x15, {{0x15, 31, 0, true}, {0x15, 31, 1, true}}, {0x015F8000, 0x015F9000}, 39},
        {"bus by bus",
         0x16,
         0x18,
         {{0x18, 0, 0, false}, {0x16, 31, 0, false}, {0x17, 4, 0, false}, {0x19, 0, 0, false}},
         {0x016F8000, 0x01720000, 0x01800000},
         96},
        {"up to bus 0xFF", 0xFE, 0xFF, {{0xFE, 0, 0, false}, {0xFF, 31, 0, false}}, {0x0FE00000, 0x0FFF8000}, 64},
        {"no bus between the two", 0x20, 0x1F, {{0x1F, 0, 0, false}, {0x20, 0, 0, false}}, {}, 0},
    };
    std::uint64_t ReadsOfTheRest = 0;
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
        ReadsOfTheRest += Root->Reads;
        VornElogSmmClearPciDeviceStatusQueue();
    }
    EXPECT_NE(ReadsOfTheRest, 0u);
}

TEST_F(ErrorScan, NoBusNumberNoScan) {
    for (const auto& [Secondary, Subordinate] :
         {std::pair{0, BUS}, std::pair{int{BUS}, UINT8{0}}, std::pair{0, UINT8{0}}}) {
        Root->MakeBridge(static_cast<unsigned>(Secondary), Subordinate).Set(ROOT_STATUS, 4, 0x2C);
        const TestFunction& Below = AddFailing(BUS, 0, 0);
        Machine.Forget();
        EXPECT_EQ(Scan(), EFI_SUCCESS);
        EXPECT_EQ(Below.Reads, 0u);
        // Unsupported requests were left as they are; the root port is cleared all the same.
        EXPECT_THAT(Written(), ElementsAre(ROOT_PORT + ROOT_STATUS));
        EXPECT_EQ(Root->Peek(ROOT_STATUS, 4), 0u);
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

TEST_F(ErrorScan, NothingAnswersBelowADeadLink) {
    const auto AddDpcTrigger = [](TestFunction& Function) {
        Function.AddDpc().Set(DPC + DPC_CONTROL, 2, 0x0011).Set(DPC + DPC_STATUS, 2, 0x0001);
    };
    const auto RemoveDevice = [](TestFunction& Function) { Function.Set(PCIE + PCIE_SLOT_CAPABILITIES, 4, 0x40); };
    for (const bool IsContained : {true, false}) {
        SCOPED_TRACE(IsContained ? "contained" : "removed");
        Root = &Machine.AddRootPort();
        Root->SetWriteOneToClear(ROOT_STATUS, 4, 0x7F);
        Root->Poke(ROOT_STATUS, 4, 0x04);
        IsContained ? AddDpcTrigger(*Root) : RemoveDevice(*Root);
        const TestFunction& Below = AddFailing(BUS, 0, 0);
        const std::size_t Before = Machine.Sim.TraceLog().size();
        EXPECT_EQ(Scan(), EFI_SUCCESS);
        EXPECT_EQ(Below.Reads, 0u);
        EXPECT_EQ(Root->Peek(ROOT_STATUS, 4), 0u);
        EXPECT_THAT(
            Machine.Sim.TraceLog().substr(Before),
            HasSubstr("VornPcieErrorScan: RP @ SBDF 0000:0C:01.0 Skipping downstream bus scan due to DPC trigger "
                      "event or PCIe hot remove\n"));
    }
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

// Allocations of the scan: the root port's record, its copy and node in the queue; the same for each function.
TEST_F(ErrorScan, MemoryRunsOutAnywhere) {
    struct Row {
        std::uint64_t Failing;
        EFI_STATUS Status;
        std::vector<UINT32> Queued;
        bool IsFirstCleared, IsSecondCleared;
        std::uint64_t Left;  // blocks: the queue keeps the copy for which there was no node
        const char* Text;
    };
    const Row Rows[] = {
        {0, EFI_SUCCESS, {ROOT_PORT, 0x00D00000, 0x00D08000}, true, true, 0, ""},
        {1,
         EFI_OUT_OF_RESOURCES,
         {},
         false,
         false,
         0,
         "VornPcieErrorScan: ERROR Out of Resources allocating PCIe Device State memory for RP @ SBDF 0000:0C:01.0, "
         "aborting...\n"},
        {2,
         EFI_SUCCESS,
         {0x00D00000, 0x00D08000},
         true,
         true,
         0,
         "from QueueAdd (PCIe Device Data) for SBDF 0000:0C:01.0"},
        {3,
         EFI_SUCCESS,
         {0x00D00000, 0x00D08000},
         true,
         true,
         1,
         "from QueueAdd (PCIe Device Data) for SBDF 0000:0C:01.0"},
        {4,
         EFI_SUCCESS,
         {ROOT_PORT, 0x00D08000},
         false,
         true,
         0,
         "VornPcieErrorScan: ERROR Out of Resources allocating PCIe Device State memory for DS device @ SBDF "
         "0000:0D:00.0, skipping...\n"},
        {5,
         EFI_SUCCESS,
         {ROOT_PORT, 0x00D08000},
         false,
         true,
         0,
         "from QueueAdd (PCIe Device Data) for SBDF 0000:0D:00.0"},
        {6,
         EFI_SUCCESS,
         {ROOT_PORT, 0x00D08000},
         false,
         true,
         1,
         "from QueueAdd (PCIe Device Data) for SBDF 0000:0D:00.0"},
        {7, EFI_SUCCESS, {ROOT_PORT, 0x00D00000}, true, false, 0, "for DS device @ SBDF 0000:0D:01.0, skipping...\n"},
        {9,
         EFI_SUCCESS,
         {ROOT_PORT, 0x00D00000},
         true,
         false,
         1,
         "from QueueAdd (PCIe Device Data) for SBDF 0000:0D:01.0"},
    };
    for (const Row& Row : Rows) {
        SCOPED_TRACE(Row.Failing);
        const TestFunction& First = AddFailing(BUS, 0, 0);
        const TestFunction& Second = AddFailing(BUS, 1, 0);
        Root->Set(ROOT_STATUS, 4, 0x04);
        FakeServices Pool;
        Pool.FailAllocation = Row.Failing;
        const std::size_t Before = Machine.Sim.TraceLog().size();
        EXPECT_EQ(Scan(), Row.Status);
        EXPECT_EQ(QueuedAddresses(), Row.Queued);
        for (const PCI_DEVICE_STATE* pState : Queued()) {
            EXPECT_EQ(pState->PcieRootPortData.pPciDeviceStateUpstreamRootPort,
                      Row.Queued[0] == ROOT_PORT ? Queued()[0] : nullptr);
        }
        EXPECT_EQ(First.Peek(AER + AER_UNCORRECTABLE_STATUS, 4) == 0, Row.IsFirstCleared);
        EXPECT_EQ(Second.Peek(AER + AER_UNCORRECTABLE_STATUS, 4) == 0, Row.IsSecondCleared);
        EXPECT_EQ(Root->Peek(ROOT_STATUS, 4), EFI_ERROR(Row.Status) ? 0x04u : 0u);
        EXPECT_THAT(Machine.Sim.TraceLog().substr(Before), HasSubstr(Row.Text));
        EXPECT_EQ(VornElogSmmClearPciDeviceStatusQueue(), EFI_SUCCESS);
        EXPECT_EQ(Pool.LiveBlocks, Row.Left);
    }
}

TEST_F(ErrorScan, RecordsThatCannotBeReleased) {
    AddFailing(BUS, 0, 0);
    FakeServices Pool;
    Pool.FailFree = 1;
    EXPECT_EQ(Scan(), EFI_SUCCESS);
    EXPECT_TRUE(
        Machine.Traced("VornPcieErrorScan: ERROR Invalid Parameter freeing PCIe Device State memory for DS device "
                       "@ SBDF 0000:0D:00.0, aborting...\n"));
    Pool.FailFree = 2;
    EXPECT_EQ(Scan(), EFI_INVALID_PARAMETER);
    VornElogSmmClearPciDeviceStatusQueue();
    EXPECT_EQ(Pool.LiveBlocks, 2u);
}

// A device that dies during the scan: whatever it answers from there on, the scan ends and keeps nothing.
TEST_F(ErrorScan, DeviceDiesAtAnyRead) {
    const std::uint64_t Blocks = Machine.Blocks();
    for (const bool IsRoot : {true, false}) {
        for (std::uint64_t Lifetime = 0; Lifetime < 90; Lifetime++) {
            SCOPED_TRACE(testing::Message() << (IsRoot ? "root port" : "function") << " after read " << Lifetime);
            Root = &Machine.AddRootPort();
            Root->Set(ROOT_STATUS, 4, 0x04);
            TestFunction& Below = AddFailing(BUS, 0, 0);
            (IsRoot ? *Root : Below).Lifetime = Lifetime;
            EXPECT_EQ(Scan(), EFI_SUCCESS);
            for (const PCI_DEVICE_STATE* pState : Queued()) {
                // NULL when the root port died before it was known as one.
                const PCI_DEVICE_STATE* pLink = pState->PcieRootPortData.pPciDeviceStateUpstreamRootPort;
                EXPECT_TRUE(pLink == nullptr || pLink == Queued()[0]);
            }
            VornElogSmmClearPciDeviceStatusQueue();
            ASSERT_EQ(Machine.Blocks(), Blocks);
        }
    }
}

TEST_F(ErrorScan, TakesThePortsThatAreMeant) {
    // Device number of the port on its bus, by address.
    const UINT32 Addresses[] = {0x00C08000, 0x00C10000, 0x01C18000, 0x10C20000, 0x00C08000};
    std::vector<UINT8> Map(sizeof(KYR_PCIE_PORT_MAP) + std::size(Addresses) * sizeof(KYR_PCIE_PORT_MAP_ENTRY));
    auto* const pMap = reinterpret_cast<KYR_PCIE_PORT_MAP*>(Map.data());
    pMap->PortCount = std::size(Addresses);
    for (std::size_t At = 0; At < std::size(Addresses); At++) {
        KYR_PCIE_PORT_MAP_ENTRY Entry{};
        Entry.RpPciAddr = Addresses[At];
        Entry.PortNumber = static_cast<UINT8>(0x30 + At);
        std::memcpy(Map.data() + sizeof(KYR_PCIE_PORT_MAP) + At * sizeof(Entry), &Entry, sizeof(Entry));
    }
    auto* const pEntry = const_cast<RB_BUS_ENTRY*>(RbBusEntries(mRbBusMap)) + 1;
    pEntry->RbSeg = 0;
    pEntry->RbBusBase = ROOT_BUS;
    mPlatformApeiData->KyrPciePortMap = pMap;
    mPlatformApeiData->PciMapValid = 0;
    EXPECT_EQ(PcieErrorScanHelper(1, &Hub, SCAN_ALL_ROOT_PORTS), EFI_NOT_FOUND);
    EXPECT_TRUE(Machine.Traced("PcieErrorScanHelper: ERROR PciMapValid 0 not ready yet, aborting...\n"));
    mPlatformApeiData->PciMapValid = 1;
    mPlatformApeiData->KyrPciePortMap = nullptr;
    EXPECT_EQ(PcieErrorScanHelper(1, &Hub, SCAN_ALL_ROOT_PORTS), EFI_NOT_FOUND);
    mPlatformApeiData->KyrPciePortMap = pMap;
    EXPECT_EQ(PcieErrorScanHelper(1, nullptr, SCAN_ALL_ROOT_PORTS), EFI_INVALID_PARAMETER);
    EXPECT_EQ(PcieErrorScanHelper(0xFF, &Hub, SCAN_ALL_ROOT_PORTS), EFI_INVALID_PARAMETER);
    EXPECT_THAT(QueuedAddresses(), IsEmpty());

    for (const UINT8 Device : {2, 3, 4}) {
        Machine.Add(ROOT_BUS, Device, 0, PcieRootPort).MakeBridge(0, 0);
    }
    Machine.Sim.Machine().Pci().Add({1, ROOT_BUS, 4, 0}, std::make_unique<TestFunction>(PcieRootPort));
    struct Row {
        UINT32 RpPciAddr;
        std::vector<UINT32> Queued;
    };
    const Row Rows[] = {
        {SCAN_ALL_ROOT_PORTS, {0x00C08000, 0x00C10000, 0x00C08000}},  // in the order of the map
        {0x00C10000, {0x00C10000}},
        {0x10C20000, {0x10C20000}},
        {0x00C18000, {}},  // there is such a function, but no such port
    };
    Root->MakeBridge(0, 0);
    for (const Row& Row : Rows) {
        SCOPED_TRACE(Row.RpPciAddr);
        EXPECT_EQ(PcieErrorScanHelper(1, &Hub, Row.RpPciAddr), EFI_SUCCESS);
        EXPECT_EQ(QueuedAddresses(), Row.Queued);
        VornElogSmmClearPciDeviceStatusQueue();
    }
    // One port that fails does not keep the next from being scanned.
    FakeServices Pool;
    Pool.FailAllocation = 1;
    EXPECT_EQ(PcieErrorScanHelper(1, &Hub, SCAN_ALL_ROOT_PORTS), EFI_SUCCESS);
    EXPECT_THAT(QueuedAddresses(), ElementsAre(0x00C10000, 0x00C08000));
    EXPECT_TRUE(
        Machine.Traced("PcieErrorScanHelper: ERROR Out of Resources from VornPcieErrorScan @ Seg 0x00 Bus 0x0c "
                       "Port 48, skipping to next port...\n"));
    VornElogSmmClearPciDeviceStatusQueue();
}

TEST_F(ErrorScan, RecordsGoToTheirOwnRootComplex) {
    struct Row {
        UINT32 RootPort;
        bool IsLinked;
        UINT8 Seg, Bus;
        std::size_t Records;
    };
    const Row Rows[] = {
        {ROOT_PORT, true, 0, ROOT_BUS, 1},  {ROOT_PORT, true, 0, ROOT_BUS + 1, 0}, {ROOT_PORT, true, 1, ROOT_BUS, 0},
        {ROOT_PORT, false, 0, ROOT_BUS, 1}, {ROOT_PORT, false, 0, BUS, 0},         {0x10C08000, true, 1, ROOT_BUS, 1},
    };
    for (const Row& Row : Rows) {
        SCOPED_TRACE(testing::Message() << std::hex << Row.RootPort << (Row.IsLinked ? " linked" : " not linked"));
        AddFailing(BUS, 0, 0);
        PCI_DEVICE_STATE RootPort{};
        RootPort.PciAddress = Row.RootPort;
        Port.RpPciAddr = Row.RootPort;
        PCI_DEVICE_STATE State{};
        State.PciAddress = PackPciAddress(0, BUS, 0, 0);
        State.PcieRootPortData.pPciDeviceStateUpstreamRootPort = Row.IsLinked ? &RootPort : nullptr;
        ASSERT_EQ(VornElogSmmGetPciDeviceState(&Hub, &Port, &State), EFI_SUCCESS);
        Machine.Forget();
        EXPECT_EQ(VornElogSmmHandlePciErrors(0, 0, 0, Row.Seg, Row.Bus), EFI_SUCCESS);
        EXPECT_EQ(Machine.Events("record", "section").size(), Row.Records);
        VornElogSmmClearPciDeviceStatusQueue();
        VornElogSmmClearErrorRecordBuffersPci();
    }
}

TEST_F(ErrorScan, RefusesNothing) {
    EXPECT_EQ(VornPcieErrorScan(nullptr, &Port), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornPcieErrorScan(&Hub, nullptr), EFI_INVALID_PARAMETER);
    EXPECT_TRUE(Machine.Traced("VornPcieErrorScan: One or more input parameters are NULL, aborting...\n"));
}

}  // namespace
