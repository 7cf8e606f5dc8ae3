#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Library/VornElogBaseLib/CircularBuffer.h"
#include "Library/VornElogBaseLib/FiniteBuffer.h"
#include "Library/VornElogBaseLib/Queue.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/FakeServices.h"

namespace {

struct Element {
    UINT32 Number;
    UINT8 Tail[8];
};

// Header, slots and a guard behind them, as a creator lays them out.
template <class Buffer>
class Laid {
 public:
    explicit Laid(UINT64 Slots) : Words((sizeof(Buffer) + Slots * sizeof(Element)) / 4 + 4, 0xCCCCCCCC) {
        Header()->MaxElements = Slots;
        Header()->ElementSize = sizeof(Element);
    }
    Buffer* Header() {
        return reinterpret_cast<Buffer*>(Words.data());
    }
    UINT32 Slot(UINT64 Index) {
        return BufferSlot<Element>(Header(), Index)->Number;
    }
    bool GuardIntact() const {
        return Words[Words.size() - 4] == 0xCCCCCCCC;
    }

 private:
    std::vector<UINT32> Words;
};

class Containers : public testing::Test {
 protected:
    Simulator::Simulation Machine{{}};
    FakeServices Smst;
};

TEST_F(Containers, RingKeepsTheNewestAndOneFreeSlot) {
    Laid<CIRCULAR_BUFFER> Ring(4);
    CircularBufferClear(Ring.Header());
    // After each add: Head, Tail, full. Worked out by hand for a ring of four.
    const struct {
        UINT32 Head, Tail;
        BOOLEAN Full;
    } After[] = {
        {0, 1, FALSE}, {0, 2, FALSE}, {0, 3, TRUE}, {1, 0, TRUE},
        {2, 1, TRUE},  {3, 2, TRUE},  {0, 3, TRUE}, {1, 0, TRUE},
    };
    UINT32 Number = 0;
    for (const auto& State : After) {
        const Element One{++Number, {}};
        EXPECT_EQ(CircularBufferAddElement(Ring.Header(), &One), TRUE);
        EXPECT_EQ(Ring.Header()->Head, State.Head);
        EXPECT_EQ(Ring.Header()->Tail, State.Tail);
        EXPECT_EQ(CircularBufferIsFull(Ring.Header()), State.Full);
        EXPECT_EQ(CircularBufferIsEmpty(Ring.Header()), FALSE);
        const UINT32 Newest = Ring.Header()->Tail == 0 ? 3 : Ring.Header()->Tail - 1;
        EXPECT_EQ(Ring.Slot(Newest), Number);
    }
    EXPECT_EQ(Ring.Slot(Ring.Header()->Head), 6u) << "8, 7 and 6 are left";
    EXPECT_TRUE(Ring.GuardIntact());
}

std::string Text(const void* pData) {
    return static_cast<const char*>(pData);
}

TEST_F(Containers, QueueOwnsCopiesAndHandsThemOutInOrder) {
    QUEUE Queue{7, nullptr, nullptr};
    QueueInit(&Queue);
    EXPECT_EQ(QueueIsEmpty(&Queue), TRUE);
    EXPECT_EQ(QueueHead(&Queue), nullptr);
    EXPECT_EQ(QueueRemove(&Queue), EFI_SUCCESS) << "an empty queue stays as it is";
    char Data[] = "one";
    EXPECT_EQ(QueueAdd(&Queue, Data, sizeof(Data)), EFI_SUCCESS);
    std::memcpy(Data, "two", sizeof(Data));
    EXPECT_EQ(QueueAdd(&Queue, Data, sizeof(Data)), EFI_SUCCESS);
    EXPECT_EQ(QueueAdd(&Queue, "third", 6), EFI_SUCCESS);
    EXPECT_EQ(Queue.NumElements, 3u);
    EXPECT_EQ(Smst.Blocks.size(), 6u);
    EXPECT_EQ(Text(QueueHead(&Queue)->pNext->pData), "two");
    EXPECT_EQ(Text(Queue.pTail->pData), "third");
    EXPECT_EQ(Queue.pTail->pNext, nullptr);

    EXPECT_EQ(Text(QueueHeadData(&Queue)), "one");
    EXPECT_EQ(QueueRemove(&Queue), EFI_SUCCESS);
    EXPECT_EQ(QueueRemove(&Queue), EFI_SUCCESS);
    EXPECT_EQ(Text(QueueHeadData(&Queue)), "third");
    EXPECT_EQ(QueueRemove(&Queue), EFI_SUCCESS);
    EXPECT_EQ(QueueIsEmpty(&Queue), TRUE);
    EXPECT_TRUE(Smst.Blocks.empty());

    QueueAdd(&Queue, "again", 6);
    QueueAdd(&Queue, "once", 5);
    EXPECT_EQ(QueueClear(&Queue), EFI_SUCCESS);
    EXPECT_EQ(Queue.NumElements, 0u);
    EXPECT_EQ(QueueIsEmpty(&Queue), TRUE);
    EXPECT_TRUE(Smst.Blocks.empty());
}

TEST_F(Containers, QueueAddWithoutMemoryLeavesTheQueueAsItWas) {
    const struct {
        bool Filled;
        unsigned Failing;
        size_t BlocksKept;  // meant: without a node the copy stays
    } Cases[] = {{false, 1, 0}, {false, 2, 1}, {true, 1, 2}, {true, 2, 3}};
    for (const auto& Case : Cases) {
        FakeServices Fresh;
        QUEUE Queue{};
        if (Case.Filled) {
            ASSERT_EQ(QueueAdd(&Queue, "a", 2), EFI_SUCCESS);
        }
        const QUEUE Before = Queue;
        Fresh.FailAllocation = Case.Failing;
        EXPECT_EQ(QueueAdd(&Queue, "b", 2), EFI_OUT_OF_RESOURCES);
        EXPECT_EQ(std::memcmp(&Before, &Queue, sizeof(Queue)), 0);
        EXPECT_EQ(Fresh.Blocks.size(), Case.BlocksKept);
        EXPECT_EQ(QueueAdd(&Queue, "c", 2), EFI_SUCCESS) << "usable afterwards";
        EXPECT_EQ(Text(Queue.pTail->pData), "c");
        EXPECT_EQ(Queue.NumElements, Case.Filled ? 2u : 1u);
    }
}

}  // namespace
