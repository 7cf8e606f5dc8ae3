#include "Library/VornCperCreateLib/ProcessorSection.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "Library/VornCperCreateLib/ProcessorCheck.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/HexText.h"

namespace {

constexpr UINT32 BANK_INDEX = 2;
constexpr UINT64 CONTEXT_SIZE = 144;

Simulator::Configuration WithClock(bool BatteryDead) {
    Simulator::Configuration Settings;
    Settings.Clock = "2026-11-24 13:45:58";
    Settings.ClockBatteryDead = BatteryDead;
    return Settings;
}

// Register n of the bank under test holds the bytes n 02 03 04 05 06 07 08; the status is the case's own. The
// neighbours hold junk.
RasMcaErrorInfo ScanWith(UINT64 McaStatus) {
    const auto Register = [](UINT64 Index) { return 0x0807060504030200 | Index; };
    RasMcaErrorInfo Scan;
    std::memset(static_cast<void*>(&Scan), 0xEE, sizeof(Scan));
    Scan.CpuInfo.LocalApicId = 0x12B;
    Scan.CpuInfo.CpuIdLeaf1Eax = 0x00A00F11;
    Scan.CpuInfo.CpuIdLeaf1Ebx = 0x2B800800;
    Scan.CpuInfo.CpuIdLeaf1Ecx = 0x7EFA320B;
    Scan.CpuInfo.CpuIdLeaf1Edx = 0x178BFBFF;
    Scan.McgIp = 0xFFFFFFFF81234567;
    MCA_BANK_ERROR_INFO& Bank = Scan.McaBankErrorInfo[BANK_INDEX];
    Bank.McaBankNumber = 21;
    Bank.McaCtl = Register(0x00);
    Bank.McaStatus = McaStatus;
    Bank.McaAddr = Register(0x02);
    Bank.McaMisc0 = Register(0x03);
    Bank.McaConfig = Register(0x04);
    Bank.McaIpid = Register(0x05);
    Bank.McaSynd = Register(0x06);
    Bank.McaDeStat = Register(0x08);
    Bank.McaDeAddr = Register(0x09);
    Bank.McaMisc1 = Register(0x0A);
    Bank.McaSynd1 = Register(0x0E);
    Bank.McaSynd2 = Register(0x0F);
    std::memcpy(Bank.FruText, "CPU1-CORE-07-BANK-21", MCA_FRU_TEXT_SIZE);  // fills the field, no NUL
    return Scan;
}

// One error information and one context structure in their lists, as the logging of a bank makes them.
struct Lists {
    explicit Lists(const RasMcaErrorInfo& Scan, BOOLEAN IsDeferred = FALSE) {
        InitializeListHead(&Errors);
        InitializeListHead(&Contexts);
        EXPECT_EQ(EFI_SUCCESS, VornCperCreateProcessorErrorInformationStructure(DEBUG_VERBOSE, &Scan, BANK_INDEX,
                                                                                IsDeferred, &ErrorInfo));
        ErrorNode.pErrorInfo = &ErrorInfo;
        InsertTailList(&Errors, &ErrorNode.Link);
        BOOLEAN IsValid = FALSE;
        EXPECT_EQ(EFI_SUCCESS, VornCperCreateProcessorContextInfoStrucMcBank(DEBUG_VERBOSE, &Scan, BANK_INDEX, 16,
                                                                             CONTEXT_SIZE, &IsValid, Context()));
        EXPECT_EQ(TRUE, IsValid);
        ContextNode.pContextInfo = Context();
        ContextNode.RegisterArrayLength = CONTEXT_SIZE - 16;
        InsertTailList(&Contexts, &ContextNode.Link);
    }
    EFI_IA32_X64_PROCESSOR_CONTEXT_INFO* Context() {
        return reinterpret_cast<EFI_IA32_X64_PROCESSOR_CONTEXT_INFO*>(ContextBytes.data());
    }

    LIST_ENTRY Errors, Contexts;
    EFI_IA32_X64_PROCESSOR_ERROR_INFORMATION ErrorInfo{};
    std::array<std::uint8_t, CONTEXT_SIZE> ContextBytes{};
    PROCESSOR_ERROR_INFO_DATA_NODE ErrorNode{};
    PROCESSOR_CONTEXT_INFO_DATA_NODE ContextNode{};
};

struct GoldenCase {
    const char* Name;
    UINT64 McaStatus;
    BOOLEAN IsDeferred, PreviousError;
    UINT32 Severity;
    std::string NotificationType;
    UINT32 HeaderFlags, DescriptorFlags;
    std::string ErrorType;
    UINT64 ValidFields, CheckInfo, InstructionIP;
};

// The bytes of a number as a record holds them.
std::string Le32(UINT32 Value) {
    return " " + HexText(&Value, sizeof(Value)) + " ";
}
std::string Le64(UINT64 Value) {
    return " " + HexText(&Value, sizeof(Value)) + " ";
}
std::string Zeros(std::size_t Count) {
    return " " + HexText(std::vector<std::uint8_t>(Count).data(), Count) + " ";
}

const std::string NotifyCmc = "B1 8B CE 2D D7 BD 0E 45 B9 AD 9C F4 EB D4 F8 90";
const std::string NotifyMce = "FE 6F F5 E8 9C 91 C5 4C BA 88 65 AB E1 49 13 BB";
const std::string CacheCheck = "F5 01 57 A5 EF E3 DE 43 AC 72 24 9B 57 3F AD 2C";
const std::string TlbCheck = "35 B5 06 FC 1F 5E 62 45 9F 25 0A 3B 9A DB 63 C3";
const std::string BusCheck = "B3 F8 F3 1C B1 C5 A2 49 AA 59 5E EF 92 FF A6 3C";
const std::string MsCheck = "57 7F AB 48 34 DC 6C 4F A7 D3 B0 B5 B0 A7 43 14";
constexpr UINT64 IP = 0xFFFFFFFF81234567;

// A record with one error information and one context structure, byte by byte in the published order.
std::string GoldenRecord(const GoldenCase& Case) {
    const std::string Header = "43 50 45 52  04 02  FF FF FF FF  01 00" + Le32(Case.Severity) +
                               "02 00 00 00  D8 01 00 00  3A 2D 0D 01 18 0B 1A 14" + Zeros(3 * 16) +
                               Case.NotificationType + Zeros(8) + Le32(Case.HeaderFlags) + Zeros(8 + 12);
    const std::string Descriptor = "C8 00 00 00  10 01 00 00  04 02  00  00" + Le32(Case.DescriptorFlags) +
                                   "B0 A0 3E DC 44 A1 97 47 B9 5B 53 FA 24 2B 6E 1D" + Zeros(16) +
                                   Le32(Case.Severity) +
                                   // "CPU1-CORE-07-BANK-2" and its NUL
                                   "43 50 55 31 2D 43 4F 52 45 2D 30 37 2D 42 41 4E 4B 2D 32 00 ";
    const std::string Section =
        "07 01 00 00 00 00 00 00  2B 01 00 00 00 00 00 00 "
        "11 0F A0 00 00 00 00 00  00 08 80 2B 00 00 00 00  0B 32 FA 7E 00 00 00 00  FF FB 8B 17 00 00 00 00" +
        Zeros(16);
    const std::string ErrorInformation =
        Case.ErrorType + Le64(Case.ValidFields) + Le64(Case.CheckInfo) + Zeros(3 * 8) + Le64(Case.InstructionIP);
    const std::string Context =
        "01 00  80 00  50 21 00 C0" + Zeros(8) + "00 02 03 04 05 06 07 08" + Le64(Case.McaStatus) +
        "02 02 03 04 05 06 07 08  03 02 03 04 05 06 07 08  04 02 03 04 05 06 07 08  05 02 03 04 05 06 07 08 "
        "06 02 03 04 05 06 07 08" +
        Zeros(8) + "08 02 03 04 05 06 07 08  09 02 03 04 05 06 07 08  0A 02 03 04 05 06 07 08" + Zeros(3 * 8) +
        "0E 02 03 04 05 06 07 08  0F 02 03 04 05 06 07 08";
    return Header + Descriptor + Section + ErrorInformation + Context;
}

class GoldenProcessorRecord : public testing::TestWithParam<GoldenCase> {};

TEST_P(GoldenProcessorRecord, HoldsEveryByteOfThePublishedLayout) {
    Simulator::Simulation Machine(WithClock(false));
    const RasMcaErrorInfo Scan = ScanWith(GetParam().McaStatus);
    Lists Bank(Scan, GetParam().IsDeferred);
    const UINT64 Length = VornCperGetProcessorSpecificRecordLength(DEBUG_VERBOSE, &Bank.Errors, &Bank.Contexts);
    ASSERT_EQ(472u, Length);
    std::vector<std::uint8_t> Record(Length);
    EXPECT_EQ(EFI_SUCCESS, VornCperCreateProcessorSpecific(DEBUG_VERBOSE, &Scan, BANK_INDEX, GetParam().PreviousError,
                                                           FALSE, &Bank.Errors, &Bank.Contexts, Length,
                                                           reinterpret_cast<CPER_RECORD*>(Record.data())));
    EXPECT_EQ(HexLines(BytesOf(GoldenRecord(GetParam()))), HexLines(Record));
}

// The check-information words, bit by bit (validation bits in the low half):
// cache    0136, PCC 0 UC 0 overflow:  type 1, operation 3, level 2, precise, restartable, overflow; 0 to 7
// TLB      001E, UC TCC:               type 3, level 2, uncorrected; 0, 2 to 7
// bus      0F5B, PCC UC:               type 2, operation 5, level 3, corrupt, uncorrected, part 3, time-out; 0 to 10
// MS       0405, overflow:             type 5, precise, restartable, overflow; 0 to 5
// none     0000, UC:                   type 5, uncorrected, precise, restartable; 0 to 5
// deferred 0136, overflow:             type 5, overflow; 0 and 5
const GoldenCase GoldenCases[] = {
    {"CacheCorrected", 0xD400000000050136, FALSE, TRUE, 2, NotifyCmc, 3, 0x81, CacheCheck, 0x11, 0x388D00FF, IP},
    {"TlbThreadFatal", 0xB48000000000001E, FALSE, FALSE, 0, NotifyCmc, 0, 0x01, TlbCheck, 0x01, 0x048300FD, 0},
    {"BusFatalPoison", 0xBE00080000000F5B, FALSE, FALSE, 1, NotifyMce, 0, 0x41, BusCheck, 0x01, 0x1C6D607FF, 0},
    {"MsOfALoggedDeferredBank", 0xC400180000000405, FALSE, FALSE, 0, NotifyCmc, 0, 0xE1, MsCheck, 0x11, 0xE5003F, IP},
    {"UnrecognizedRecoverable", 0xB000000000000000, FALSE, FALSE, 0, NotifyCmc, 0, 0x01, MsCheck, 0x11, 0x75003F, IP},
    {"DeferredOfADirectCaller", 0xC000100000000136, TRUE, TRUE, 0, NotifyCmc, 2, 0xA1, MsCheck, 0x01, 0x850021, 0},
};
INSTANTIATE_TEST_SUITE_P(EachCheck, GoldenProcessorRecord, testing::ValuesIn(GoldenCases),
                         [](const testing::TestParamInfo<GoldenCase>& Info) { return Info.param.Name; });

TEST(ProcessorCheck, TakesTheFirstRowThatDescribesTheErrorCode) {
    Simulator::Simulation Machine{Simulator::Configuration{}};
    struct {
        UINT16 ErrorCode;
        BOOLEAN IsDeferred;
        UINT32 Row;
    } Cases[] = {
        {0x0000, FALSE, 5}, {0x000F, FALSE, 5}, {0x0010, FALSE, 1}, {0x001F, FALSE, 1}, {0x0020, FALSE, 5},
        {0x0100, FALSE, 0}, {0x01FF, FALSE, 0}, {0x0200, FALSE, 5}, {0x03FF, FALSE, 5}, {0x0400, FALSE, 3},
        {0x07FF, FALSE, 3}, {0x0800, FALSE, 2}, {0x0FFF, FALSE, 2}, {0x1136, FALSE, 5}, {0x1000, FALSE, 5},
        {0x0000, TRUE, 4},  {0x0015, TRUE, 4},  {0x0136, TRUE, 4},  {0x0405, TRUE, 4},  {0x0800, TRUE, 4},
    };
    for (const auto& Case : Cases) {
        UINT32 Row = 0;
        BOOLEAN IsDetected = FALSE;
        while (Row < MAX_UEFI_CPER_ERROR_CHECK_STRUCTURE_TYPES) {
            EXPECT_EQ(EFI_SUCCESS, CperProcessorErrorCheckTable[Row].Validator(DEBUG_VERBOSE, Case.ErrorCode,
                                                                               Case.IsDeferred, &IsDetected));
            if (IsDetected) {
                break;
            }
            Row++;
        }
        EXPECT_EQ(Case.Row, Row) << std::hex << Case.ErrorCode << " deferred " << int{Case.IsDeferred};
    }
}

TEST(ProcessorSection, StopsWhereTheRecordEnds) {
    Simulator::Simulation Machine{Simulator::Configuration{}};
    const RasMcaErrorInfo Scan = ScanWith(0xD400000000000136);
    Lists Bank(Scan);
    struct {
        UINT64 Length;
        UINT64 ValidFields;
        const char* Message;
    } Cases[] = {{264 + 63, 0x3, "Processor Error Info 0 => CPER buffer overrun"},
                 {472 - 1, 0x7, "Processor Context Info 0 => CPER buffer overrun"}};
    for (const auto& Case : Cases) {
        std::vector<std::uint8_t> Record(600, 0);
        std::memset(Record.data() + Case.Length, 0xCC, Record.size() - Case.Length);
        auto* const Cper = reinterpret_cast<CPER_RECORD*>(Record.data());
        EXPECT_EQ(EFI_BUFFER_TOO_SMALL,
                  VornCperCreateProcessorSpecific(DEBUG_VERBOSE, &Scan, BANK_INDEX, FALSE, FALSE, &Bank.Errors,
                                                  &Bank.Contexts, Case.Length, Cper));
        EXPECT_EQ(0xCC, Record[Case.Length]);
        EXPECT_EQ(Case.ValidFields, CperSection<CPER_PROCESSOR_SECTION>(Cper)->ValidFields);
        EXPECT_EQ("43 50 45 52", HexText(Record.data(), 4));
        EXPECT_NE(std::string::npos, Machine.TraceLog().find(Case.Message));
    }
}

TEST(RecordFront, IsCompletedWithoutAClock) {
    Simulator::Simulation Machine(WithClock(true));
    const RasMcaErrorInfo Scan = ScanWith(0xB400000000000136);
    Lists Bank(Scan);
    std::vector<std::uint8_t> Record(472);
    auto* const Cper = reinterpret_cast<CPER_RECORD*>(Record.data());
    EXPECT_EQ(EFI_SUCCESS, VornCperCreateProcessorSpecific(DEBUG_VERBOSE, &Scan, BANK_INDEX, FALSE, FALSE,
                                                           &Bank.Errors, &Bank.Contexts, 472, Cper));
    EXPECT_EQ("00 00 00 00 00 00 00 00", HexText(&Cper->Header.TimeStamp, 8));
    EXPECT_EQ(2u, Cper->Header.ValidationBits);
    EXPECT_EQ(NotifyCmc, HexText(Record.data() + 80, 16));
    EXPECT_NE(std::string::npos, Machine.TraceLog().find("from ElogGetTime"));
}

}  // namespace
