#include "Library/VornCperCreateLib/MemorySection.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Simulator/Simulation.h"
#include "Tests/Support/HexText.h"
#include "Tests/Support/SmbiosHandover.h"

namespace {

constexpr UINT32 BANK_INDEX = 2;
constexpr UINT64 RECORD_LENGTH = 280;
constexpr UINT64 SYSTEM_ADDRESS = 0x0000123456789ABC;

Simulator::Configuration WithClock() {
    Simulator::Configuration Settings;
    Settings.Clock = "2026-11-24 13:45:58";
    return Settings;
}

// A machine whose SMBIOS data was handed over: the DIMM under test is labelled B14.
struct BootedMachine {
    BootedMachine() {
        Sim.Boot();
        HandOverSmbios(Sim, SmbiosType16Handler, SmbiosType16Payload({0x1000, 0x1001}, 2));
        HandOverSmbios(Sim, SmbiosType17Handler,
                       SmbiosType17Payload({{0x1100, 0x1000, "A14"}, {0x1105, 0x1001, "B14"}}, 2));
    }
    Simulator::Simulation Sim{WithClock()};
};

RasMcaErrorInfo ScanWith(UINT64 McaStatus) {
    RasMcaErrorInfo Scan;
    std::memset(static_cast<void*>(&Scan), 0xEE, sizeof(Scan));
    Scan.McaBankErrorInfo[BANK_INDEX].McaStatus = McaStatus;
    return Scan;
}

// Channel 4 of the second die counts as the socket's channel 6.
constexpr NORMALIZED_ADDRESS ADDRESS{0xEEEEEEEEEEEEEEEE, 1, 1, 4, {}};

DIMM_INFO DimmWith(UINT32 ValidBits, UINT8 DimmOnCh) {
    DIMM_INFO Info;
    std::memset(&Info, 0xEE, sizeof(Info));
    Info.ValidBits = ValidBits;
    Info.DimmOnCh = DimmOnCh;
    Info.RankOnDimm = 1;
    Info.Row = 0xFFFBBEEF;
    Info.Column = 0x0123;
    Info.BankGroup = 5;
    Info.BankAddress = 2;
    return Info;
}

struct GoldenCase {
    const char* Name;
    UINT64 McaStatus;
    UINT32 ValidBits;
    UINT8 DimmOnCh;
    BOOLEAN PreviousError;
    const char *Severity, *NotificationType, *HeaderFlags;                 // of the header
    const char *SecValidMask, *DescriptorFlags, *FruString;                // of the descriptor
    const char *ValidationBits, *ErrorStatus, *Module, *Cell, *TypeAndOn;  // of the section
};

const char* const Cmc = "B1 8B CE 2D D7 BD 0E 45 B9 AD 9C F4 EB D4 F8 90";
const char* const Mce = "FE 6F F5 E8 9C 91 C5 4C BA 88 65 AB E1 49 13 BB";
// "DIMM_B14"
const char* const FruB14 = "44 49 4D 4D 5F 42 31 34 00 00 00 00 00 00 00 00 00 00 00 00";
const char* const FruNone = "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00";
// Bank, device, row and column; row 0x3BEEF has two bits more than the field.
const char* const Cell = "02 05 00 00 EF BE 23 01";
const char* const NoCell = "00 00 00 00 00 00 00 00";

std::string Zeros(std::size_t Count) {
    return " " + HexText(std::vector<std::uint8_t>(Count).data(), Count) + " ";
}

// A record byte by byte in the published order.
std::string GoldenRecord(const GoldenCase& Case) {
    const std::string Severity = std::string(" ") + Case.Severity + " 00 00 00 ";
    const std::string Header = "43 50 45 52  04 02  FF FF FF FF  01 00" + Severity +
                               "02 00 00 00  18 01 00 00  3A 2D 0D 01 18 0B 1A 14" + Zeros(3 * 16) +
                               Case.NotificationType + Zeros(8) + Case.HeaderFlags + " 00 00 00" + Zeros(8 + 12);
    const std::string Descriptor =
        std::string("C8 00 00 00  50 00 00 00  04 02 ") + Case.SecValidMask + " 00 " + Case.DescriptorFlags +
        " 00 00 00  14 11 BC A5 64 6F DE 4E B8 63 3E 83 ED 7C 83 B1" + Zeros(16) + Severity + Case.FruString + " ";
    const std::string Section = std::string(Case.ValidationBits) + " " + Case.ErrorStatus +
                                "  BC 9A 78 56 34 12 00 00  FF FF FF FF FF FF 00 00  01 00  06 00  " + Case.Module +
                                " 00  " + Case.Cell + " 00 00" + Zeros(3 * 8) + Case.TypeAndOn;
    return Header + Descriptor + Section;
}

class GoldenMemoryRecord : public testing::TestWithParam<GoldenCase> {};

TEST_P(GoldenMemoryRecord, HoldsEveryByteOfThePublishedLayout) {
    BootedMachine Machine;
    const auto Pool = Machine.Sim.Pool().LiveBlocks;
    const RasMcaErrorInfo Scan = ScanWith(GetParam().McaStatus);
    const DIMM_INFO Dimm = DimmWith(GetParam().ValidBits, GetParam().DimmOnCh);
    ASSERT_EQ(RECORD_LENGTH, VornCperGetMemoryRecordLength());
    std::vector<std::uint8_t> Record(RECORD_LENGTH);
    EXPECT_EQ(EFI_SUCCESS, VornCperCreateMemory(DEBUG_VERBOSE, &Scan, BANK_INDEX, SYSTEM_ADDRESS, &ADDRESS, &Dimm,
                                                GetParam().PreviousError, RECORD_LENGTH,
                                                reinterpret_cast<CPER_RECORD*>(Record.data())));
    EXPECT_EQ(HexLines(BytesOf(GoldenRecord(GetParam()))), HexLines(Record));
    EXPECT_EQ(Pool, Machine.Sim.Pool().LiveBlocks);
}

// Status words by their bits: Val 63, overflow 62, UC 61, En 60, AddrV 58, PCC 57, SyndV 53, CECC 46, UECC 45,
// deferred 44, poison 43, extended code from 16 on. Error status: type in byte 1, data in bit 18. Validation bits of
// a whole record: 0 to 5, 9, 14 to 20. The last eight bytes: type, row bits 17:16, rank, handles of array and device.
const GoldenCase GoldenCases[] = {
    {"CorrectedTranslated", 0x942040000000011B, 1, 1, FALSE, "02", Cmc, "01", "02", "01", FruB14,
     "3F C2 1F 00 00 00 00 00", "00 04 04 00 00 00 00 00", "01", Cell, "02 03 01 00 01 10 05 11"},
    {"UncorrectedFatal", 0xB62020000000011B, 3, 1, TRUE, "01", Mce, "02", "02", "01", FruB14,
     "3F C2 1F 00 00 00 00 00", "00 04 04 00 00 00 00 00", "01", Cell, "03 03 01 00 01 10 05 11"},
    {"DeferredPoison", 0xD42038000000011B, 1, 1, FALSE, "00", Cmc, "00", "02", "E1", FruB14,
     "3F C2 1F 00 00 00 00 00", "00 1A 04 00 00 00 00 00", "01", Cell, "03 03 01 00 01 10 05 11"},
    {"CorrectedAndUncorrected", 0xD42060000000011B, 1, 1, TRUE, "02", Cmc, "03", "02", "81", FruB14,
     "3F C2 1F 00 00 00 00 00", "00 04 04 00 00 00 00 00", "01", Cell, "03 03 01 00 01 10 05 11"},
    {"ExtendedCode4Corrected", 0x942040000004011B, 1, 1, FALSE, "02", Cmc, "01", "02", "01", FruB14,
     "3F C2 1F 00 00 00 00 00", "00 04 04 00 00 00 00 00", "01", Cell, "08 03 01 00 01 10 05 11"},
    {"ExtendedCode4Poison", 0x942068000004011B, 1, 1, FALSE, "02", Cmc, "01", "02", "41", FruB14,
     "3F C2 1F 00 00 00 00 00", "00 1A 04 00 00 00 00 00", "01", Cell, "08 03 01 00 01 10 05 11"},
    {"ExtendedCode5WithoutEcc", 0x942000000005011B, 1, 1, FALSE, "02", Cmc, "01", "02", "01", FruB14,
     "3F C2 1F 00 00 00 00 00", "00 16 04 00 00 00 00 00", "01", Cell, "08 03 01 00 01 10 05 11"},
    {"ExtendedCode8PoisonWithoutEcc", 0x942008000008011B, 1, 1, FALSE, "02", Cmc, "01", "02", "41", FruB14,
     "3E C2 1F 00 00 00 00 00", "00 00 00 00 00 00 00 00", "01", Cell, "00 03 01 00 01 10 05 11"},
    {"SyndromeOnly", 0x942040000000011B, 2, 1, FALSE, "02", Cmc, "01", "02", "01", FruB14, "3F C0 03 00 00 00 00 00",
     "00 04 04 00 00 00 00 00", "01", NoCell, "02 00 01 00 01 10 05 11"},
    {"SyndromeOnlyDimmWithoutLabel", 0x942040000000011B, 2, 2, FALSE, "02", Cmc, "01", "00", "01", FruNone,
     "3F C0 00 00 00 00 00 00", "00 04 04 00 00 00 00 00", "02", NoCell, "02 00 01 00 00 00 00 00"},
};
INSTANTIATE_TEST_SUITE_P(EachError, GoldenMemoryRecord, testing::ValuesIn(GoldenCases),
                         [](const testing::TestParamInfo<GoldenCase>& Info) { return Info.param.Name; });

}  // namespace
