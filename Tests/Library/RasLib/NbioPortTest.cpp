#include "Library/RasLib/NbioPort.h"

#include <gtest/gtest.h>

#include "Tests/Support/IoHubMachine.h"

namespace {

TEST(NbioPort, ARootPortIsFoundThroughFabricHubAndBridgeMap) {
    IoHubMachine Machine;
    struct Case {
        unsigned Socket, Iom, PortIndex;
        UINT32 BridgeMap;  // its first register
        UINT8 Core, PortNumber;
        UINT32 Lock;
    };
    // Even IOHCs have their registers at 0x13B..., odd ones at 0x1D4...; only IOM 2 and its twin have a second core.
    for (const Case& Test :
         {Case{0, 0, 0, 0x13B100B8, 0, 0, 0x1A380040}, Case{0, 0, 8, 0x13B100B8, 0, 8, 0x1A380040},
          Case{0, 1, 3, 0x1D4100B8, 1, 3, 0x1A480040}, Case{1, 2, 8, 0x13C100B8, 2, 8, 0x1A780040},
          Case{0, 2, 9, 0x13C100B8, 5, 0, 0x1AB80040}, Case{0, 2, 16, 0x13C100B8, 5, 7, 0x1AB80040},
          Case{0, 3, 1, 0x1D5100B8, 3, 1, 0x1A880040}, Case{1, 4, 2, 0x13D100B8, 0, 2, 0x1A580040},
          Case{0, 5, 2, 0x1D6100B8, 1, 2, 0x1A680040}, Case{0, 6, 16, 0x13E100B8, 5, 7, 0x1AD80040},
          Case{1, 7, 8, 0x1D7100B8, 3, 8, 0x1AA80040}}) {
        const unsigned Ports = Test.Iom % 4 == 2 ? 17 : 9;
        for (unsigned Port = 0; Port < Ports; Port++) {
            // The port's own bridge is device 5 function 3; bits above 7 are not the bridge's.
            Machine.Smn(Test.Socket, Test.Iom)
                .Map(Test.BridgeMap + 4 * Port, Port == Test.PortIndex ? 0xFFFFFF00 | 5 << 3 | 3 : 5 << 3 | 2);
        }
        const UINT32 Address =
            PackPciAddress(0, static_cast<UINT8>(IoHubMachine::BusOf(Test.Socket, Test.Iom)), 5, 3);
        UINT8 Iom = 0xEE, Core = 0xEE;
        NBIO_PORT_INFO Port{};
        ASSERT_EQ(ConvertRpPciAddrToNbioWrapperPort(Address, &Iom, &Core, &Port), EFI_SUCCESS) << Test.Iom;
        EXPECT_EQ(Iom, Test.Iom);
        EXPECT_EQ(Core, Test.Core);
        EXPECT_EQ(Port.PortIndex, Test.PortIndex);
        EXPECT_EQ(Port.PortNumber, Test.PortNumber);
        EXPECT_EQ(Port.SegBus, IoHubMachine::BusOf(Test.Socket, Test.Iom));
        EXPECT_EQ(Port.HwInitLockAddr, Test.Lock);

        // No port is that bridge: nothing is written.
        EXPECT_EQ(ConvertRpPciAddrToNbioWrapperPort(Address + (1 << 15), &Iom, &Core, &Port), EFI_NOT_FOUND);
        EXPECT_EQ(Iom, Test.Iom);
    }
}

TEST(NbioPort, ABusBelongsToTheRangeThatHoldsIt) {
    IoHubMachine Machine;
    Machine.SetRange(3, 1, 0x30, 0x3F, 0, 3);         // another segment
    Machine.SetRange(4, 0, 0x40, 0x4F, 0, 4, false);  // does not decode
    Machine.SetRange(5, 0, 0x50, 0x50, 0, 5);         // one bus
    Machine.SetRange(6, 0, 0x60, 0x6F, 0, 0x10);      // to a fabric ID that no IO stop has
    Machine.SetRange(7, 0, 0x70, 0x7F, 2, 7);         // to a socket that does not exist
    struct Case {
        UINT8 Segment, Bus;
        EFI_STATUS Status;
        UINT8 Socket, Iom, RbIndex;
    };
    for (const Case& Test : {Case{0, 0x00, EFI_SUCCESS, 0, 0, 0}, Case{0, 0x0F, EFI_SUCCESS, 0, 0, 0},
                             Case{0, 0x10, EFI_SUCCESS, 0, 1, 4}, Case{0, 0x2F, EFI_SUCCESS, 0, 2, 1},
                             Case{0, 0x30, EFI_NOT_FOUND, 0, 0, 0}, Case{1, 0x30, EFI_SUCCESS, 0, 3, 5},
                             Case{0, 0x48, EFI_NOT_FOUND, 0, 0, 0}, Case{0, 0x50, EFI_SUCCESS, 0, 5, 6},
                             Case{0, 0x51, EFI_NOT_FOUND, 0, 0, 0}, Case{0, 0x60, EFI_NOT_FOUND, 0, 0, 0},
                             Case{0, 0x70, EFI_NOT_FOUND, 0, 0, 0}, Case{0, 0xC5, EFI_SUCCESS, 1, 4, 2},
                             Case{0, 0xEF, EFI_SUCCESS, 1, 6, 3}, Case{0, 0xFF, EFI_SUCCESS, 1, 7, 7},
                             Case{0xF, 0xFF, EFI_NOT_FOUND, 0, 0, 0}}) {
        NBIO_HUB Hub{};
        EXPECT_EQ(FindNbioHubOfBus(DEBUG_VERBOSE, PackPciAddress(Test.Segment, Test.Bus, 1, 0), &Hub), Test.Status)
            << +Test.Bus;
        EXPECT_EQ(Hub.Socket, Test.Socket) << +Test.Bus;
        EXPECT_EQ(Hub.Iom, Test.Iom) << +Test.Bus;
        EXPECT_EQ(Hub.NbioRbIndex, Test.RbIndex) << +Test.Bus;
        EXPECT_EQ(Hub.SegBus, EFI_ERROR(Test.Status) ? 0 : IoHubMachine::BusOf(Test.Socket, Test.Iom)) << +Test.Bus;
    }
    EXPECT_EQ(FindNbioHubOfBus(DEBUG_VERBOSE, 0, nullptr), EFI_INVALID_PARAMETER);
    NBIO_HUB Hub{};
    mRbBusMap = nullptr;
    EXPECT_EQ(FindNbioHubOfBus(DEBUG_VERBOSE, 0, &Hub), EFI_NOT_FOUND);
}

}  // namespace
