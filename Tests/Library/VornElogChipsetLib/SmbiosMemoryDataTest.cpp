#include "Library/VornElogChipsetLib/SmbiosMemoryData.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Tests/Support/SmbiosHandover.h"

namespace {

using Simulator::Simulation;

// Status, validity, and the handles of array and device that a lookup finds.
struct Found {
    EFI_STATUS Status;
    BOOLEAN Valid;
    UINT32 Array, Device;
    bool operator==(const Found&) const = default;
};
std::ostream& operator<<(std::ostream& Out, const Found& One) {
    return Out << std::hex << static_cast<UINT64>(One.Status) << " " << int{One.Valid} << " " << One.Array << " "
               << One.Device;
}
constexpr UINT32 NONE = 0x10000;

Found LookUp(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm) {
    ELOG_SMBIOS_TYPE16_RECORD Junk16{};
    ELOG_SMBIOS_TYPE17_RECORD Junk17{};
    ELOG_SMBIOS_TYPE16_RECORD* Array = &Junk16;
    ELOG_SMBIOS_TYPE17_RECORD* Device = &Junk17;
    BOOLEAN Valid = 0xEE;
    const EFI_STATUS Status = VornGetSmbiosMemoryDeviceData(Socket, UmcChannel, Dimm, &Valid, &Array, &Device);
    const auto HandleOf = [](const auto* Record) { return Record == nullptr ? NONE : UINT32{Record->Handle}; };
    return {Status, Valid, Array == &Junk16 ? 0 : HandleOf(Array), Device == &Junk17 ? 0 : HandleOf(Device)};
}
constexpr Found NotReady{EFI_NOT_READY, 0xEE, 0, 0};
constexpr Found Nothing{EFI_NOT_FOUND, FALSE, NONE, NONE};

TEST(SmbiosLookup, FindsTheFirstRecordOfTheLabelAndItsArray) {
    const std::string Filling(645, 'A');  // a locator without a NUL
    const std::vector<SmbiosDevice> Devices = {
        {0x1100, 0x1000, "B1"}, {0x1101, 0x1001, "B24"},   {0x1102, 0x1000, "B24"},
        {0x1103, 0x1009, "A2"}, {0x1104, 0x1000, Filling}, {0x1105, 0x1000, "A1 "},
    };
    std::vector<SmbiosDevice> Full(128, {0x1200, 0x1000, "none"});
    Full[127] = {0x1201, 0x1001, "B24"};
    std::vector<UINT16> Arrays(10, 0x1002);
    Arrays[8] = 0x1001;
    Arrays[9] = 0x1000;
    const std::vector<std::uint8_t> Type16 = SmbiosType16Payload({0x1000, 0x1001}, 2);
    const std::vector<std::uint8_t> Type17 = SmbiosType17Payload(Devices, 6);
    const struct {
        const char* Name;
        std::vector<std::uint8_t> Type16, Type17;
        UINT8 Socket, UmcChannel, Dimm;
        Found Result;
    } Cases[] = {
        {"the first of two", Type16, Type17, 1, 11, 1, {EFI_SUCCESS, TRUE, 0x1001, 0x1101}},
        {"a text that begins alike is another", Type16, Type17, 0, 0, 0, Nothing},
        {"an array that is not there", Type16, Type17, 0, 0, 1, Nothing},
        {"a DIMM without a label", Type16, Type17, 2, 0, 0, Nothing},
        {"the count ends before the record", Type16, SmbiosType17Payload(Devices, 1), 1, 11, 1, Nothing},
        {"the count ends before the array", SmbiosType16Payload({0x1000, 0x1001}, 1), Type17, 1, 11, 1, Nothing},
        {"the last records",
         SmbiosType16Payload(Arrays, 10),
         SmbiosType17Payload(Full, 128),
         1,
         11,
         1,
         {EFI_SUCCESS, TRUE, 0x1001, 0x1201}},
        {"counts beyond the room", SmbiosType16Payload(Arrays, 0xFFFF), SmbiosType17Payload(Full, 0xFFFF), 0, 0, 0,
         Nothing},
        {"counts beyond the room, found",
         SmbiosType16Payload(Arrays, 256),
         SmbiosType17Payload(Full, 256),
         1,
         11,
         1,
         {EFI_SUCCESS, TRUE, 0x1001, 0x1201}},
        {"type 16 not valid", SmbiosType16Payload({0x1001}, 1, 0), Type17, 1, 11, 1, NotReady},
        {"no type 16 record", SmbiosType16Payload({0x1001}, 0), Type17, 1, 11, 1, NotReady},
        {"type 17 not valid", Type16, SmbiosType17Payload(Devices, 6, 0), 1, 11, 1, NotReady},
        {"no type 17 record", Type16, SmbiosType17Payload(Devices, 0), 1, 11, 1, NotReady},
    };
    for (const auto& Case : Cases) {
        Simulation Machine{Simulator::Configuration{}};
        Machine.Boot();
        const auto Pool = Machine.Pool().LiveBlocks;
        EXPECT_EQ(EFI_SUCCESS, HandOverSmbios(Machine, SmbiosType17Handler, Case.Type17));
        EXPECT_EQ(EFI_SUCCESS, HandOverSmbios(Machine, SmbiosType16Handler, Case.Type16));
        EXPECT_EQ(Case.Result, LookUp(Case.Socket, Case.UmcChannel, Case.Dimm)) << Case.Name;
        EXPECT_EQ(Pool, Machine.Pool().LiveBlocks) << Case.Name;
    }
}

}  // namespace
