// The event log decoder against records that were laid out by hand.
#include <gtest/gtest.h>

#include "Simulator/Decode/Decoded.h"
#include "Tests/Support/HexText.h"

namespace {

using Simulator::DecodeError;
using Simulator::DecodeSel;

std::string Tell(Simulator::SelNarrator& Narrator, const std::string& Event) {
    const std::vector<std::uint8_t> Bytes = BytesOf(Event);
    return Narrator.Tell(std::span<const std::uint8_t, 6>(Bytes.data(), 6));
}

TEST(SelDecode, EachEventOfTheSystem) {
    const std::pair<const char*, const char*> Rows[] = {
        {"07 3C 6F AC 02 A3", "corrected machine check, socket 1, APIC ID 0xA3"},
        {"07 0D 07 A6 01 05", "uncorrected (CPU0704) machine check, socket 0, APIC ID 0x05"},
        {"C1 1A 7E 01 06 FF", "configuration register byte 0x106 = 0xFF"},
        {"C1 57 7E 0C CD AB", "CXL RAS capability 0x0C = 0xABCD"},
        {"C1 2E 72 A2 05 07", "POST errors (PST0089), memory-training errors (PST0091), data 0x07"},
        {"13 05 6F A5 1B E0", "PCI SERR (PCI1310) of E0:03.3"},
        {"13 04 6F A4 00 40", "PCI PERR (PCI1308) of 40:00.0"},
        {"D4 13 74 34 44 00", "memory half the threshold, hard repair, DIMM socket 0 slot 1"},
        {"D4 13 74 30 61 4B", "memory an eighth of the threshold, DIMM socket 1 slot 12"},
        {"D5 14 74 3E F7 01", "memory corrected ECC error, DIMM socket 0 slot 2"},
        {"D5 14 74 44 41 00", "memory uncorrected ECC error, poison detected, DIMM socket 0 slot 1"},
        {"D6 15 74 4E F2 40", "memory uncorrected ECC error, poison consumed, DIMM socket 1 slot 1"},
        {"DE 16 74 17 1B E0", "PCIe fatal event, segment 1, E0:03.3"},
        {"DE 16 74 02 07 01", "PCIe correctable event, segment 0, slot 263"},
        {"DF 1D 74 0B 04 02", "CXL fatal event, segment 0, drive slot 4 bay 2"},
        {"DD 17 74 12 08 40", "chipset fatal error, segment 1, 40:01.0"},
        {"07 3C 6F A0 01 05", "not an event of this system"},
    };
    for (const auto& [Event, Wanted] : Rows) {
        Simulator::SelNarrator Narrator;
        EXPECT_EQ(Tell(Narrator, Event), Wanted);
    }
}

TEST(SelDecode, RegistersAreToldByTheirLastEvent) {
    Simulator::SelNarrator Narrator;
    Tell(Narrator, "07 3C 6F AC 02 0D");
    // APIC ID 0x0D; socket 1, CCX 2, die 0, core 3, thread 1.
    EXPECT_EQ(Tell(Narrator, "C1 28 7E 0D 00 00"), "register data 1 of 4");
    Tell(Narrator, "C1 28 7E 00 00 00");
    Tell(Narrator, "C1 28 7E 00 01 03");
    EXPECT_EQ(Tell(Narrator, "C1 28 7E 00 02 01"), "location: APIC ID 0xD, socket 1, die 0, CCX 2, core 3, thread 1");
    // After the location come registers.
    Tell(Narrator, "C1 28 7E 51 20 00");
    Tell(Narrator, "C1 28 7E C0 08 01");
    Tell(Narrator, "C1 28 7E 00 00 00");
    EXPECT_EQ(Tell(Narrator, "C1 28 7E 00 A0 BE"), "MSR 0xC0002051 (mca-status of bank 5) = 0xBEA0000000000108");
    Tell(Narrator, "C1 49 7E 45 03 E0");
    Tell(Narrator, "C1 49 7E A1 78 56");
    EXPECT_EQ(Tell(Narrator, "C1 49 7E 34 12 00"), "root port 0xA1E00345 = 0x12345678");
    // A register that is cut off by another event is forgotten.
    Tell(Narrator, "C1 28 7E 51 20 00");
    Tell(Narrator, "07 3C 6F AC 01 00");
    EXPECT_EQ(Tell(Narrator, "C1 28 7E 00 00 00"), "register data 1 of 4");
}

TEST(SelDecode, RecordsCarryTimeAndGenerator) {
    const std::vector<std::uint8_t> Log =
        BytesOf("02 01 02 40 7C 05 6B 20 00 04 07 3C 6F AC 01 05 03 01 DF 00 00 00 00 01 02 03 04 05 06 07 08 09");
    const nlohmann::ordered_json Records = ToJson(DecodeSel(Log))["record"];
    ASSERT_EQ(Records.size(), 2u);
    EXPECT_EQ(Records[0]["value"], "0x102");
    EXPECT_EQ(Records[0]["meaning"], "corrected machine check, socket 0, APIC ID 0x05");
    EXPECT_EQ(Records[0]["time"]["meaning"], "2026-11-24 12:00:00 UTC");
    EXPECT_EQ(Records[0]["generator"], "0x0020");
    EXPECT_EQ(Records[0]["event"], "07 3C 6F AC 01 05");
    EXPECT_EQ(Records[1]["meaning"], "OEM record");
    EXPECT_TRUE(DecodeSel({}).empty());
}

TEST(SelDecode, BrokenLogsSayWhere) {
    EXPECT_THROW(DecodeSel(std::vector<std::uint8_t>(15)), DecodeError);
    try {
        DecodeSel(BytesOf(
            "01 00 02 00 00 00 00 20 00 04 07 3C 6F AC 01 05 02 00 03 00 00 00 00 20 00 04 07 3C 6F AC 01 05"));
        ADD_FAILURE() << "was taken";
    } catch (const DecodeError& Error) {
        EXPECT_NE(std::string(Error.what()).find("offset 16 has type 0x03"), std::string::npos) << Error.what();
    }
}

}  // namespace
