#include "Simulator/Firmware/Pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "Simulator/Firmware/MemoryLayout.h"
#include "Simulator/Firmware/UnderSanitizer.h"

namespace Simulator {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(Pool, RefusesToFreeWhatIsNoLiveBlock) {
    Pool From(0, true);
    void* Block = nullptr;
    ASSERT_EQ(From.Allocate(64, &Block), EFI_SUCCESS);
    auto* Bytes = static_cast<std::uint8_t*>(Block);
    std::uint8_t Foreign[64];
    std::memset(Bytes, 0, 64);  // a front that would name entry 0
    for (void* Bad : {static_cast<void*>(nullptr), static_cast<void*>(Foreign), static_cast<void*>(Bytes + 1),
                      static_cast<void*>(Bytes + 32), static_cast<void*>(Bytes + 4096),
                      static_cast<void*>(Memory().Pool.Base), static_cast<void*>(Memory().Pool.End())}) {
        EXPECT_EQ(From.Free(Bad), EFI_INVALID_PARAMETER);
    }
    EXPECT_EQ(From.Free(Block), EFI_SUCCESS);
    EXPECT_EQ(From.Free(Block), EFI_INVALID_PARAMETER) << "freed twice";
    EXPECT_EQ(From.Statistics().Frees, 1u);
}

#if !UNDER_ADDRESS_SANITIZER  // which sees the overrun itself
TEST(Pool, SeesBlocksThatWereOverrun) {
    Pool From(0, true);
    void *Over = nullptr, *Under = nullptr, *Freed = nullptr;
    From.BeginSmi(7);
    From.Allocate(40, &Over);
    From.Allocate(41, &Under);
    From.Allocate(42, &Freed);
    static_cast<std::uint8_t*>(Over)[40] = 0;
    static_cast<std::uint8_t*>(Under)[-1] = 0;
    static_cast<std::uint8_t*>(Freed)[42] = 0;
    EXPECT_EQ(From.Free(Freed), EFI_SUCCESS);
    EXPECT_THAT(From.TakeDamageSeenAtFree(),
                ElementsAre("pool block 3 of 42 bytes, allocated in SMI 7, was overrun before it was freed"));
    EXPECT_THAT(From.DamagedBlocks(), ElementsAre("pool block 1 of 40 bytes, allocated in SMI 7, was overrun",
                                                  "pool block 2 of 41 bytes, allocated in SMI 7, was overrun"));
    EXPECT_THAT(From.DamagedBlocks(), IsEmpty()) << "reported once";
}
#endif

}  // namespace
}  // namespace Simulator
