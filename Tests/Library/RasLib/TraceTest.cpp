#include "Library/RasLib/Trace.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "Library/RasLib/Assert.h"
#include "Library/RasLib/Globals.h"
#include "Library/RasLib/ProcessorAccess.h"
#include "Simulator/Simulation.h"

namespace {

using testing::HasSubstr;
using testing::Not;

template <class... Arguments>
std::string Formatted(TraceFormat<typename TraceDetail::Identity<Arguments>::type...> Format,
                      const Arguments&... Values) {
    const TraceArgument Packed[] = {TraceDetail::Pack(Values)..., {}};
    CHAR8 Line[64];
    const UINTN Length = FormatTrace(Line, sizeof(Line), Format.Text, Packed, sizeof...(Values));
    return std::string(Line, Length);
}

TEST(TraceFormatting, PrintsEachConversionInItsOwnWidth) {
    const EFI_GUID Guid{0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 0xFF}};
    const CHAR8* NoText = nullptr;
    const EFI_STATUS TwoErrorsOred = EFI_NOT_FOUND | EFI_LOAD_ERROR;  // 14 | 1 is no code of the table's
    const struct {
        std::string Line;
        std::string Expected;
    } Cases[] = {
        {Formatted("%d", INT32{-1}), "-1"},
        {Formatted("%d", UINT8{200}), "200"},
        {Formatted("%d", INT64{INT64_MIN}), "-9223372036854775808"},
        {Formatted("%d", UINT64{UINT64_MAX}), "18446744073709551615"},
        {Formatted("%02d|%2d|%d", UINT8{7}, UINT8{7}, UINT8{0}), "07| 7|0"},
        {Formatted("%03d|%3d", static_cast<int8_t>(-5), static_cast<int8_t>(-5)), "-05| -5"},
        {Formatted("%x|%02X", INT32{-1}, static_cast<int8_t>(-86)), "ffffffff|AA"},
        {Formatted("%016lx|%8x|%04X", UINT64{0xABC}, UINT32{0xABC}, UINT32{0x12345}),
         "0000000000000abc|     abc|12345"},
        {Formatted("%a|%4a", "text", "ab"), "text|  ab"},
        {Formatted("%s", u"A1\u00e9"), "A1?"},
        {Formatted("x%a", NoText), "x(null)"},
        {Formatted("%g", &Guid), "12345678-9ABC-DEF0-0102-0304050607FF"},
        {Formatted("%r|%r|%r", EFI_SUCCESS, EFI_INVALID_PARAMETER, EFI_NOT_FOUND),
         "Success|Invalid Parameter|Not Found"},
        {Formatted("%r|%r", EFI_OUT_OF_RESOURCES, EFI_ABORTED), "Out of Resources|Aborted"},
        {Formatted("%r", static_cast<EFI_STATUS>(EFI_ERROR_BIT | 22)), "8000000000000016"},
        {Formatted("%r", static_cast<EFI_STATUS>(2)), "0000000000000002"},  // a warning
        {Formatted("%r", TwoErrorsOred), "Access Denied"},                  // what the OR makes of them
        {Formatted("100%% of %d", UINT16{3}), "100% of 3"},
    };
    for (const auto& Case : Cases) {
        EXPECT_EQ(Case.Line, Case.Expected);
    }
}

TEST(TraceFormatting, CutsAtTheBufferAndWritesNothingBehindIt) {
    for (const UINTN Size : {UINTN{1}, UINTN{2}, UINTN{5}, UINTN{9}}) {
        CHAR8 Buffer[12];
        __builtin_memset(Buffer, '#', sizeof(Buffer));
        const TraceArgument Number = TraceDetail::Pack(UINT32{12345});
        EXPECT_EQ(FormatTrace(Buffer, Size, "ab %08d", &Number, 1), Size - 1);
        EXPECT_EQ(std::string(Buffer), std::string("ab 00012345").substr(0, Size - 1));
        EXPECT_EQ(Buffer[Size], '#');
    }
}

void TraceFromAnotherProcessor(void*) {
    Trace(DEBUG_ERROR, "%a: here\n");
}

void HelperOfOperation(const CHAR8* Operation) {
    TraceAs(Operation, DEBUG_INFO, "%a: %d\n", 3);
}

TEST(TraceLines, CarryPrefixAndNameAndAreCutAt255) {
    Simulator::Simulation Machine({});
    ASSERT_EQ(Machine.Boot(), EFI_SUCCESS);
    Trace(DEBUG_ERROR, "%a: status %r\n", EFI_TIMEOUT);
    EXPECT_THAT(Machine.TraceLog(), HasSubstr("[SMM] APIC 0x00 S00:C00:T00 > TestBody: status Time out\n"));
    HelperOfOperation("Operation");
    EXPECT_THAT(Machine.TraceLog(), HasSubstr("> Operation: 3\n"));

    Trace(DEBUG_ERROR, "%a|\n", std::string(300, 'x').c_str());
    EXPECT_THAT(Machine.TraceLog(), HasSubstr("> " + std::string(255, 'x')));
    EXPECT_THAT(Machine.TraceLog(), Not(HasSubstr(std::string(256, 'x'))));
    Trace(0x2, "a level that is off\n");
    EXPECT_THAT(Machine.TraceLog(), Not(HasSubstr("a level that is off")));

    // The last processor: socket 1, core 3, thread 1 of the default machine.
    const UINT64 Last = gSmst->NumberOfCpus - 1;
    const UINT32 ApicId = RasSmmGetApicIdOnProcessor(Last);
    ASSERT_EQ(LibRasSmmRunFunc(TraceFromAnotherProcessor, nullptr, Last), EFI_SUCCESS);
    EXPECT_THAT(Machine.TraceLog(), HasSubstr(Formatted("[SMM] APIC 0x%02x S01:C03:T01 > ", ApicId)));
}

TEST(Assertions, PrintStatusPlaceAndConditionAndGoOn) {
    Simulator::Simulation Machine({});
    Machine.Boot();
    unsigned Evaluations = 0;
    const auto Failing = [&Evaluations] {
        Evaluations++;
        return EFI_DEVICE_ERROR;
    };
    ASSERT_EFI_ERROR(Failing());
    ASSERT_EFI_ERROR(EFI_SUCCESS);
    ASSERT(Evaluations == 2);
    EXPECT_EQ(Evaluations, 1u);
    const std::string Log = Machine.TraceLog();
    EXPECT_THAT(Log, HasSubstr("\nASSERT_EFI_ERROR (Status = Device Error)\n"));
    EXPECT_THAT(Log, testing::ContainsRegex(
                         "ASSERT \\[KyrPlatformRasQtzSmm\\] TraceTest.cpp\\([0-9]+\\): !EFI_ERROR \\(Status\\)\n"));
    EXPECT_THAT(Log, testing::ContainsRegex("TraceTest.cpp\\([0-9]+\\): Evaluations == 2\n"));
    EXPECT_THAT(Log, Not(HasSubstr("Status = Success")));
}

}  // namespace
