#include "Library/VornCperCreateLib/CperCreateLib.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "Library/VornElogChipsetLib/DimmLocation.h"
#include "Library/VornElogChipsetLib/SmbiosMemoryData.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/VendorServices.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/FakeServices.h"

namespace {

// The services as far as the library's start and end need them. Handles are numbers from 1.
class CperCreateLib : public testing::Test {
 protected:
    CperCreateLib() {
        Made = this;
        Services.Install(gVornMemoryInterfaceMemorySmmProtocolGuid, &Interface);
        Interface.GetMemoryArrayPtr = [](VORN_MEMORY_ARRAY** MemoryArray) {
            *MemoryArray = Made->Offered;
            return Made->StatusOf("array");
        };
        Services.Table.SmiHandlerRegister = [](EFI_SMM_HANDLER_ENTRY_POINT2 Handler, const EFI_GUID* Guid,
                                               EFI_HANDLE* Handle) {
            const bool Is16 = Guid->Data1 == gVornSmbiosType16HandleToSmramGuid.Data1;
            EXPECT_EQ(Is16 ? VornHoistSmbiosType16DataToSmram : VornHoistSmbiosType17DataToSmram, Handler);
            *Handle = reinterpret_cast<EFI_HANDLE>(UINT64{Is16 ? 16u : 17u});  // even when it fails
            return Made->StatusOf(Is16 ? "+16" : "+17");
        };
        Services.Table.SmiHandlerUnRegister = [](EFI_HANDLE Handle) {
            return Made->StatusOf("-" + std::to_string(reinterpret_cast<UINT64>(Handle)));
        };
        Array.NumDimmSlot = 2;
        Array.DimmMap = Dimms;
    }
    ~CperCreateLib() override {
        Failing = "";
        VornCperCreateLibDestructor(nullptr, nullptr);
    }

    EFI_STATUS StatusOf(const std::string& Step) {
        Steps += Steps.empty() ? Step : " " + Step;
        return Step == Failing ? EFI_DEVICE_ERROR : EFI_SUCCESS;
    }

    static inline CperCreateLib* Made = nullptr;
    Simulator::Simulation Machine{Simulator::Configuration{}};
    FakeServices Services;
    VORN_MEMORY_INTERFACE_SMM_PROTOCOL Interface{};
    DIMM_MAP_ENTRY Dimms[2] = {{0, 0, 0, 0, {}, u"A1"}, {0, 0, 0, 1, {}, u"A2"}};
    VORN_MEMORY_ARRAY Array{};
    VORN_MEMORY_ARRAY* Offered = &Array;
    std::string Failing;
    std::string Steps;
};

TEST_F(CperCreateLib, StartsAndEndsWithWhatThePlatformGives) {
    const struct {
        const char* Failing;  // the step that fails, or what is amiss
        EFI_STATUS Start;
        bool HasTable;
        const char* Steps;
        EFI_STATUS End;
        const char* Message;
    } Cases[] = {
        {"", EFI_SUCCESS, true, "array +16 +17 -17 -16", EFI_SUCCESS, ""},
        {"array", EFI_SUCCESS, false, "array +16 +17 -17 -16", EFI_SUCCESS, "from GetMemoryArrayPtr\n"},
        {"NULL array", EFI_SUCCESS, false, "array +16 +17 -17 -16", EFI_SUCCESS, ""},
        {"no slots", EFI_SUCCESS, false, "array +16 +17 -17 -16", EFI_SUCCESS, ""},
        {"no memory", EFI_LOAD_ERROR, false, "array", EFI_SUCCESS,
         "memory of length 0x0000000000000020 (32) bytes for DIMM mapping table, aborting...\n"},
        {"+16", EFI_SUCCESS, true, "array +16 +17 -17", EFI_SUCCESS,
         "VornHoistSmbiosType16DataToSmram on gVornSmbiosType16HandleToSmramGuid "
         "BC35DC21-8BE0-4FF0-B1FE-8E112C244135"},
        {"+17", EFI_DEVICE_ERROR, true, "array +16 +17 -16", EFI_SUCCESS,
         "VornHoistSmbiosType17DataToSmram on gVornSmbiosType17HandleToSmramGuid "
         "AA84D12F-CC6D-4CA7-AE26-04127962CC81"},
        {"-17", EFI_SUCCESS, true, "array +16 +17 -17 -16", EFI_DEVICE_ERROR,
         "VornCperCreateLibDestructor: ERROR Device Error from"},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.Failing);
        Failing = Case.Failing;
        Steps = "";
        Offered = Failing == "NULL array" ? nullptr : &Array;
        Array.NumDimmSlot = Failing == "no slots" ? 0 : 2;
        Services.FailAllocation = Failing == "no memory" ? 1 : 0;
        EXPECT_EQ(Case.Start, VornCperCreateLibConstructor(nullptr, nullptr));
        EXPECT_EQ(Case.HasTable ? 1u : 0u, Services.LiveBlocks);
        CHAR8 FruText[20];
        EXPECT_EQ(Case.HasTable ? EFI_SUCCESS : EFI_NOT_FOUND, VornGetDimmFruInfo(0, 0, 1, 20, FruText));
        EXPECT_EQ(Case.End, VornCperCreateLibDestructor(nullptr, nullptr));
        EXPECT_EQ(Case.Steps, Steps);
        EXPECT_EQ(0u, Services.LiveBlocks);
        EXPECT_THAT(Machine.TraceLog(), testing::HasSubstr(Case.Message));
        Failing = "";
        VornCperCreateLibDestructor(nullptr, nullptr);
    }
}

}  // namespace
