#include "Library/VornElogBaseLib/SetupAttributes.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "Library/RasLib/Memory.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/VendorServices.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/FakeServices.h"

namespace {

std::map<std::u16string, std::string> Stored;  // bytes, terminated or not

EFI_STATUS ReadStored(const VORN_ATTRIBUTE_SMM_PROTOCOL*, const EFI_GUID* VendorGuid, const CHAR16* Name, UINT32*,
                      UINTN* DataSize, void* Data) {
    EXPECT_EQ(std::memcmp(VendorGuid, &gVornAttributeVendorGuid, sizeof(EFI_GUID)), 0);
    const auto Found = Stored.find(Name);
    if (Found == Stored.end()) {
        return EFI_NOT_FOUND;
    }
    const UINTN Room = *DataSize;
    *DataSize = Found->second.size();
    if (Room < *DataSize) {
        return EFI_BUFFER_TOO_SMALL;
    }
    std::memcpy(Data, Found->second.data(), *DataSize);
    return EFI_SUCCESS;
}

std::string Bytes(const std::u16string& Text) {
    return std::string(reinterpret_cast<const char*>(Text.data()), Text.size() * sizeof(CHAR16));
}
std::string Terminated(const std::u16string& Text) {
    return Bytes(Text) + std::string(2, '\0');
}

class SetupAttributes : public testing::Test {
 protected:
    SetupAttributes() {
        Stored = {{u"Short", Terminated(u"Disabled")},
                  {u"Unterminated", Bytes(u"Enabled")},
                  {u"Odd", Bytes(u"Odd") + "x"},
                  {u"Empty", ""},
                  {u"Fits", Terminated(u"fifteen letters")},
                  {u"Long", Terminated(u"a text longer than sixteen characters")}};
    }
    const VORN_ATTRIBUTE_SMM_PROTOCOL Store{nullptr, ReadStored};
    // A boot puts the protocol that the comparison keeps back to none.
    Simulator::Simulation Machine{{}};
    const EFI_STATUS Booted = Machine.Boot();
    FakeServices Smst;
};

TEST_F(SetupAttributes, ReadIntoATerminatedCopy) {
    CHAR16* Value = nullptr;
    EXPECT_EQ(VornGetNvramAttributeString(u"Short", &Value), EFI_NOT_FOUND) << "no store";
    EXPECT_TRUE(Smst.Blocks.empty());
    Smst.Install(gVornAttributeSmmProtocolGuid, &Store);
    const struct {
        const CHAR16* Name;
        std::u16string Value;
    } Cases[] = {
        {u"Short", u"Disabled"},
        {u"Unterminated", u"Enabled"},
        {u"Odd", u"Odd"},
        {u"Empty", u""},
        {u"Fits", u"fifteen letters"},  // 32 bytes, the first try's size
        {u"Long", u"a text longer than sixteen characters"},
    };
    for (const auto& Case : Cases) {
        ASSERT_EQ(VornGetNvramAttributeString(Case.Name, &Value), EFI_SUCCESS);
        EXPECT_EQ(std::u16string(Value), Case.Value);
        ASSERT_EQ(Smst.Blocks.size(), 1u) << "the text alone is left";
        EXPECT_EQ(Smst.Blocks[Value], Stored[Case.Name].size() + 2);
        FreeRuntimeData(Value);
    }
    EXPECT_EQ(VornGetNvramAttributeString(u"None", &Value), EFI_NOT_FOUND);
    EXPECT_EQ(Value, nullptr);
    EXPECT_EQ(VornGetNvramAttributeString(nullptr, &Value), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornGetNvramAttributeString(u"Short", nullptr), EFI_INVALID_PARAMETER);
    EXPECT_TRUE(Smst.Blocks.empty());
}

TEST_F(SetupAttributes, NothingLeaksWhenMemoryRunsOut) {
    for (unsigned Failing = 1; Failing <= 3; Failing++) {
        FakeServices Fresh;
        Fresh.Install(gVornAttributeSmmProtocolGuid, &Store);
        Fresh.FailAllocation = Failing;
        CHAR16* Value = nullptr;
        EXPECT_EQ(VornGetNvramAttributeString(u"Long", &Value), EFI_OUT_OF_RESOURCES);
        EXPECT_EQ(Value, nullptr);
        EXPECT_TRUE(Fresh.Blocks.empty());
    }
}

TEST_F(SetupAttributes, CompareSizeAndEveryByte) {
    EXPECT_EQ(VornIsNvramAttributeEqual(u"Short", u"Disabled"), FALSE) << "no store";
    Smst.Install(gVornAttributeSmmProtocolGuid, &Store);
    const std::u16string Long = u"a text longer than sixteen characters";  // 76 bytes with its NUL
    const struct {
        const CHAR16* Name;
        const CHAR16* Expected;
        UINTN Size;
        BOOLEAN Equal;
    } Cases[] = {
        {u"Short", u"Disabled", 0, TRUE},        {u"Short", u"disabled", 0, FALSE},
        {u"Short", u"Disable", 0, FALSE},        {u"Unterminated", u"Enabled", 0, FALSE},  // the NUL counts
        {u"Unterminated", u"Enabled", 14, TRUE}, {u"Empty", u"", 0, FALSE},
        {u"None", u"Enabled", 0, FALSE},         {u"Long", Long.c_str(), 0, FALSE},  // longer than the buffer
        {u"Long", Long.c_str(), 76, TRUE},       {u"Short", Long.c_str(), 76, FALSE},
        {nullptr, u"Enabled", 0, FALSE},         {u"Short", nullptr, 0, FALSE},
    };
    for (const auto& Case : Cases) {
        EXPECT_EQ(VornIsNvramAttributeEqual(Case.Name, Case.Expected, Case.Size), Case.Equal);
    }
    EXPECT_EQ(Smst.Locates, 2u) << "once in vain, then found and kept";
    EXPECT_TRUE(Smst.Blocks.empty());
    Smst.FailAllocation = 1;
    EXPECT_EQ(VornIsNvramAttributeEqual(u"Long", Long.c_str(), 76), FALSE);
}

}  // namespace
