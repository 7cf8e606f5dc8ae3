// The record decoder against records that were laid out by hand from the published format.
#include <gtest/gtest.h>

#include "Simulator/Decode/Decoded.h"
#include "Tests/Support/HexText.h"

namespace {

using Simulator::DecodeCper;
using Simulator::DecodeError;
using Json = nlohmann::ordered_json;

// Header (128 bytes) and descriptor (72 bytes); severity corrected, one section of SectionLength bytes.
std::vector<std::uint8_t> Front(const std::string& SectionType, std::uint16_t SectionLength) {
    const std::uint16_t Length = 200 + SectionLength;
    const auto Low = [](std::uint16_t Value) {
        const std::uint8_t Bytes[] = {static_cast<std::uint8_t>(Value), static_cast<std::uint8_t>(Value >> 8)};
        return HexText(Bytes, 2) + " 00 00 ";
    };
    std::vector<std::uint8_t> Record =
        BytesOf("43 50 45 52 04 02 FF FF FF FF 01 00 02 00 00 00 02 00 00 00 " + Low(Length) +
                "3B 3A 17 01 1F 0C 1A 14 "  // 2026-12-31 23:58:59
                "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                "B1 8B CE 2D D7 BD 0E 45 B9 AD 9C F4 EB D4 F8 90 "  // corrected machine check
                "00 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                "C8 00 00 00 " +
                Low(SectionLength) + "04 02 02 00 A1 00 00 00 " + SectionType +
                " 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 02 00 00 00 "
                "41 31 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00");  // "A1"
    Record.resize(Length);
    return Record;
}

void Put(std::vector<std::uint8_t>& Record, std::size_t Offset, const std::string& Text) {
    const std::vector<std::uint8_t> Bytes = BytesOf(Text);
    ASSERT_LE(Offset + Bytes.size(), Record.size());
    std::copy(Bytes.begin(), Bytes.end(), Record.begin() + static_cast<std::ptrdiff_t>(Offset));
}

constexpr char Processor[] = "B0 A0 3E DC 44 A1 97 47 B9 5B 53 FA 24 2B 6E 1D";
constexpr char Memory[] = "14 11 BC A5 64 6F DE 4E B8 63 3E 83 ED 7C 83 B1";
constexpr char Pcie[] = "54 E9 95 D9 C1 BB 0F 43 AD 91 B4 4D CB 3C 6F 35";

// One error information of a check kind, and one context of three MSRs from MCA_CTL of bank 27 on.
std::vector<std::uint8_t> ProcessorRecord(const std::string& Check, const std::string& CheckInfo) {
    std::vector<std::uint8_t> Record = Front(Processor, 64 + 64 + 16 + 24);
    Put(Record, 200, "07 01 00 00 00 00 00 00 A3 01 00 00 00 00 00 00 10 0F C3 00");
    Put(Record, 264, Check);
    Put(Record, 280, "11 00 00 00 00 00 00 00");
    Put(Record, 288, CheckInfo);
    Put(Record, 320, "EF BE AD DE 00 00 00 00");
    Put(Record, 328, "01 00 18 00 B0 21 00 C0");
    Put(Record, 344 + 8, "0B 08 02 00 00 00 20 98");
    return Record;
}

std::string Meaning(const Json& Item) {
    return Item.value("meaning", "");
}

TEST(CperDecode, HeaderAndDescriptorSayWhatTheirBytesSay) {
    const Json Record = ToJson(DecodeCper(Front(Memory, 80)));
    const Json& Header = Record["header"];
    EXPECT_EQ(Meaning(Header["severity"]), "corrected");
    EXPECT_EQ(Meaning(Header["time-stamp"]), "2026-12-31 23:58:59, precise");
    EXPECT_EQ(Meaning(Header["notification-type"]), "corrected machine check");
    EXPECT_EQ(Meaning(Header["flags"]), "recovered");
    EXPECT_EQ(Meaning(Header["platform-id"]), "not marked valid");
    const Json& Section = Record["section"];
    EXPECT_EQ(Meaning(Section["type"]), "platform memory error");
    EXPECT_EQ(Meaning(Section["flags"]), "primary, latent error, overflow");
    EXPECT_EQ(Section["fru-text"], "A1");
}

TEST(CperDecode, CheckInformationByKind) {
    struct Row {
        const char* Guid;
        const char* Word;
        const char* Kind;
        std::vector<std::pair<const char*, const char*>> Bits;  // name, meaning or value
    };
    const Row Rows[] = {
        // No operation: its validation bit is clear. Corrupt context, uncorrected, overflow.
        {"35 B5 06 FC 1F 5E 62 45 9F 25 0A 3B 9A DB 63 C3",
         "FD 00 02 26 00 00 00 00",
         "TLB check",
         {{"transaction-type", "generic"},
          {"processor-context-corrupt", "yes"},
          {"uncorrected", "yes"},
          {"precise-ip", "no"},
          {"overflow", "yes"}}},
        // Participation 3, timed out, address space 0.
        {"B3 F8 F3 1C B1 C5 A2 49 AA 59 5E EF 92 FF A6 3C",
         "FF 07 C2 D8 01 00 00 00",
         "bus check",
         {{"level", "0x3"},
          {"participation-type", "generic"},
          {"time-out", "yes"},
          {"address-space", "memory access"}}},
    };
    for (const Row& Case : Rows) {
        SCOPED_TRACE(Case.Kind);
        const Json Body = ToJson(DecodeCper(ProcessorRecord(Case.Guid, Case.Word)))["section"]["body"];
        const Json& Info = Body["error-info"];
        EXPECT_EQ(Meaning(Info["type"]), Case.Kind);
        EXPECT_EQ(Info["instruction-pointer"], "0xDEADBEEF");
        for (const auto& [Name, Wanted] : Case.Bits) {
            const Json& Bit = Info["check-info"][Name];
            EXPECT_EQ(Bit.is_string() ? Bit.get<std::string>() : Meaning(Bit), Wanted) << Name;
        }
    }
    // Only what the validation bits vouch for is told.
    const Json Tlb = ToJson(DecodeCper(ProcessorRecord(Rows[0].Guid, Rows[0].Word)))["section"]["body"];
    EXPECT_FALSE(Tlb["error-info"]["check-info"].contains("operation"));
}

TEST(CperDecode, MemoryAndPcieSections) {
    std::vector<std::uint8_t> Record = Front(Memory, 80);
    // Valid: status, address, node, card, module, column, type, rank, extended row, bank group and address.
    Put(Record, 200, "3B C2 1C 00 00 00 00 00 00 1A 04 00 00 00 00 00 80 14 5E 01 00 00 00 00");
    Put(Record, 232, "01 00 0B 00 01 00 05 02 00 00 34 12 78 00");
    Put(Record, 272, "02 03 01 00");
    const Json Cell = ToJson(DecodeCper(Record))["section"]["body"];
    EXPECT_EQ(Meaning(Cell["error-status"]["error-type"]), "poisoned");
    EXPECT_EQ(Meaning(Cell["error-status"]["detected-on"]), "data");
    EXPECT_EQ(Cell["physical-address"], "0x15E1480");
    EXPECT_EQ(Cell["card"], "0xB");
    EXPECT_EQ(Cell["bank-group"], "0x2");
    EXPECT_EQ(Cell["bank-address"], "0x5");
    EXPECT_EQ(Meaning(Cell["row"]), "not marked valid");
    EXPECT_EQ(Cell["column"], "0x78");
    EXPECT_EQ(Meaning(Cell["memory-error-type"]), "single-bit ECC");
    EXPECT_EQ(Cell["row-bits-17-16"], "0x3");
    EXPECT_EQ(Cell["rank"], "0x1");

    Record = Front(Pcie, 208);
    Put(Record, 200, "AF 00 00 00 00 00 00 00 04 00 00 00 00 03 00 00 07 04 10 00");
    Put(Record, 224, "CD AB 34 12 00 04 06 03 01 01 00 E0 E1 38 00");
    Put(Record, 200 + 112, "01 00 01 15");
    const Json Port = ToJson(DecodeCper(Record))["section"]["body"];
    EXPECT_EQ(Meaning(Port["port-type"]), "root port");
    EXPECT_EQ(Port["command-status"], "0x100407");
    EXPECT_EQ(Port["device-id"]["value"], "0001:E0:01.3");
    EXPECT_EQ(Port["device-id"]["vendor"], "0xABCD");
    EXPECT_EQ(Port["device-id"]["class-code"], "0x060400");
    EXPECT_EQ(Port["device-id"]["secondary-bus"], "0xE1");
    EXPECT_EQ(Port["device-id"]["slot"], "0x7");
    EXPECT_TRUE(Port["aer"].get<std::string>().starts_with("01 00 01 15 00"));
    EXPECT_FALSE(Port.contains("capability"));
}

TEST(CperDecode, CxlSections) {
    // A root port with a DVSEC of 32 and an error log of 536 bytes; the descriptor claims more than the record holds.
    std::vector<std::uint8_t> Record = Front("B4 EF B9 80 B5 52 E3 4D A7 77 68 78 4B 77 10 48", 116 + 32 + 536);
    Put(Record, 132, "C8 02");
    Put(Record, 200, "6F 00 00 00 00 00 00 00 05");
    Put(Record, 216, "01 0A 4E 02 00");
    Put(Record, 224, "34 12 CD AB 00 00 00 00 04 06 18 00");
    Put(Record, 240, "88 77 66 55 44 33 22 11");
    Put(Record, 308, "20 00 18 02");
    Put(Record, 316, "23 00 01 00");
    Put(Record, 348, "00 04 00 00 02 00 00 00 03 00 00 00");
    Put(Record, 348 + 0x18, "DE AD");
    Json Section = ToJson(DecodeCper(Record))["section"];
    EXPECT_EQ(Meaning(Section["length"]), "712 bytes, of which the record holds 684");
    const Json Port = Section["body"];
    EXPECT_EQ(Meaning(Port["agent-type"]), "root port");
    EXPECT_EQ(Port["agent-address"], "0002:4E:0A.1");
    EXPECT_EQ(Port["vendor"], "0x1234");
    EXPECT_EQ(Port["slot"], "0x18");
    EXPECT_EQ(Port["serial-number"], "0x1122334455667788");
    EXPECT_TRUE(Port["dvsec"].get<std::string>().starts_with("23 00 01 00"));
    EXPECT_FALSE(Port.contains("capability"));
    EXPECT_EQ(Port["error-log"]["uncorrectable-status"], "0x400");
    EXPECT_EQ(Port["error-log"]["uncorrectable-severity"], "0x3");
    EXPECT_TRUE(Port["error-log"]["header-log"].get<std::string>().starts_with("DE AD 00"));

    Record = Front("60 1D CB B3 9C 06 4E AB B8 AF 4E 9B FB 5C 96 24", 160);
    Put(Record, 204, "05 00 00 00 00 00 00 00 34 12 CD AB 01 0A 4E 02 00 18 00");
    Put(Record, 232, "60 1D CB B3 9C 06 4E AB B8 AF 4E 9B FB 5C 96 24 80 06 00 00 01 A0");
    Put(Record, 232 + 0x30, "77");
    Section = ToJson(DecodeCper(Record))["section"];
    EXPECT_EQ(Meaning(Section["type"]), "CXL DRAM event");
    EXPECT_EQ(Section["body"]["device-id"], "0002:4E:0A.1");
    EXPECT_EQ(Meaning(Section["body"]["event"]["severity"]), "failure");
    EXPECT_EQ(Section["body"]["event"]["handle"], "0xA001");
    EXPECT_TRUE(Section["body"]["event"]["data"].get<std::string>().starts_with("77 00"));
}

TEST(CperDecode, BrokenRecordsSayWhere) {
    const std::vector<std::uint8_t> Whole = ProcessorRecord("B3 F8 F3 1C B1 C5 A2 49 AA 59 5E EF 92 FF A6 3C", "FF");
    // However short a record is cut, it is refused and nothing beyond it is read.
    for (std::size_t Size = 0; Size < Whole.size(); ++Size) {
        const std::vector<std::uint8_t> Cut(Whole.begin(), Whole.begin() + static_cast<std::ptrdiff_t>(Size));
        EXPECT_THROW(DecodeCper(Cut), DecodeError) << Size;
    }
    struct Row {
        std::size_t Offset;
        const char* Bytes;
        const char* Says;
    };
    const Row Rows[] = {
        {0, "44", "begins with 44 50 45 52"},
        {6, "00", "signature's end"},
        {10, "05 00", "header and 5 descriptors need 488"},
        {20, "FF FF", "only 368 are there"},
        {128, "FF FF FF FF", "the record ends after 368 bytes"},
        {132, "A9", "the record ends after 368 bytes"},
        {200, "0B", "the processor section ends after 168 bytes"},  // two error informations
        {330, "19", "the processor section ends after 168 bytes"},  // a longer register array
    };
    for (const Row& Case : Rows) {
        SCOPED_TRACE(Case.Says);
        std::vector<std::uint8_t> Broken = Whole;
        Put(Broken, Case.Offset, Case.Bytes);
        try {
            DecodeCper(Broken);
            ADD_FAILURE() << "was taken";
        } catch (const DecodeError& Error) {
            EXPECT_NE(std::string(Error.what()).find(Case.Says), std::string::npos) << Error.what();
        }
    }
}

}  // namespace
