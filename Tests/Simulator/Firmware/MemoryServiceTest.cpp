// The RAS service's members of memory, as the driver calls them, on machines whose slots are not all alike.
#include "Simulator/Firmware/MemoryService.h"

#include <gtest/gtest.h>

#include "Library/VornElogChipsetLib/AddressTranslation.h"
#include "Platform/Protocol/RasService.h"
#include "Simulator/Firmware/ServiceTables.h"
#include "Tests/Support/BootedSimulation.h"

namespace Simulator {
namespace {

Configuration WithEmptySlot() {
    Configuration Settings;
    DimmSlotSetting Empty;
    Empty.Channel = 3;
    Empty.Dimm = 1;
    Empty.Populated = false;
    Settings.Dram.Slots = {Empty};
    return Settings;
}

NORMALIZED_ADDRESS AddressOf(UINT64 Normalized, UINT8 Channel, UINT8 Die = 0) {
    NORMALIZED_ADDRESS Address{};
    Address.NormalizedAddress = Normalized;
    Address.UmcChannel = Channel;
    Address.Die = Die;
    return Address;
}

TEST(MemoryService, SaysWhatLeadsNowhere) {
    BootedSimulation Run{WithEmptySlot()};
    const UINT64 OneDimm = 0x1000000000;  // 64 GB
    const struct {
        const char* What;
        NORMALIZED_ADDRESS Address;
        EFI_STATUS Status;
    } Cases[] = {
        {"the last line of two DIMMs", AddressOf(2 * OneDimm - 64, 2), EFI_SUCCESS},
        {"behind it", AddressOf(2 * OneDimm, 2), EFI_NOT_FOUND},
        {"the empty slot's", AddressOf(OneDimm, 3), EFI_NOT_FOUND},
        {"another die", AddressOf(0, 2, 1), EFI_NOT_FOUND},
        {"no such channel", AddressOf(0, 12), EFI_NOT_FOUND},
        {"pinned to fail", AddressOf(0x4010, 5), EFI_NOT_FOUND},
    };
    Run->PinTranslation({0, 5, 0x4000}, std::nullopt);
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        UINT64 System = 0;
        DIMM_INFO Info{};
        EXPECT_EQ(RasServiceTable()->NormalizedToDimmAddress(&Case.Address, &System, &Info), Case.Status);
    }
    DRAM_ADDRESS Place{};
    Place.ChipSelect = 2;
    NORMALIZED_ADDRESS Address{};
    RasServiceTable()->DramToNormalized(0, 0, 3, &Place, &Address);
    EXPECT_EQ(Address.NormalizedAddress, 0xDEADBEEF9AAB9AA0u);
    Run->SetFailure("DramToNormalized", Failure{});
    RasServiceTable()->DramToNormalized(0, 0, 2, &Place, &Address);
    EXPECT_EQ(Address.NormalizedAddress, 0xDEADBEEF9AAB9AA0u);
}

TEST(MemoryService, MapsSymbolsToDevices) {
    constexpr UINT64 SYND_VALID = 0x9C2040000400011B, DEFERRED = 0x9C2030000400011B;
    const struct {
        const char* What;
        unsigned Width;
        UINT64 Status, Ipid, Synd;
        EFI_STATUS Result;
        UINT32 Device;
    } Cases[] = {
        {"symbol 12 of devices of 4", 4, SYND_VALID, 0x0000009600050F00, 0x0A801203, EFI_SUCCESS, 4},
        {"of devices of 8", 8, SYND_VALID, 0x0000009600050F00, 0x0A801203, EFI_SUCCESS, 2},
        {"no symbol", 4, SYND_VALID, 0x0000009600050F00, 0x0A808003, EFI_NOT_FOUND, 0},
        {"bit 14", 4, SYND_VALID, 0x0000009600050F00, 0x0A804003, EFI_NOT_FOUND, 0},
        {"bit 14 of a deferred error is no mark", 4, DEFERRED, 0x0000009600050F00, 0x0A804003, EFI_SUCCESS, 0},
        {"symbol 40", 4, SYND_VALID, 0x0000009600050F00, 0x0A802803, EFI_NOT_FOUND, 0},
        {"no syndrome", 4, 0x9C0040000400011B, 0x0000009600050F00, 0x0A801203, EFI_NOT_FOUND, 0},
        {"another kind of error", 4, SYND_VALID | 0xC0000, 0x0000009600050F00, 0x0A801203, EFI_UNSUPPORTED, 0},
        {"another bank", 4, SYND_VALID, 0x000000B000000000, 0x0A801203, EFI_UNSUPPORTED, 0},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        Configuration Settings;
        Settings.Dram.DeviceWidth = Case.Width;
        Simulation Run{Settings};
        RasMcaErrorInfo Info{};
        Info.McaBankCount = 1;
        Info.McaBankErrorInfo[0].McaStatus = Case.Status;
        Info.McaBankErrorInfo[0].McaIpid = Case.Ipid;
        Info.McaBankErrorInfo[0].McaSynd = Case.Synd;
        UINT32 First = 0xEE, Last = 0xEE;
        UINT8 Unused = 0;
        EXPECT_EQ(
            RasServiceTable()->MapSymbolToDramDevice(RasServiceTable(), &Info, nullptr, 0, &First, &Last, &Unused),
            Case.Result);
        if (Case.Result == EFI_SUCCESS) {
            EXPECT_EQ(First, Case.Device);
            EXPECT_EQ(Last, Case.Device);
        }
    }
}

}  // namespace
}  // namespace Simulator
