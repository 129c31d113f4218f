// What the module allocates for one item when no line is logged: no more than its buffers and the text that it keeps.
#include "tests/support/allocation_counter.h"
#include "tests/support/module_under_test.h"

namespace {

constexpr wchar_t kLamina[] = L"eventlog|eventlog_lamina";
constexpr DWORD kItems = 120;

std::wstring Response(DWORD plinths)
{
    std::wstring message = L"Response 200 from Manager";
    for (DWORD i = 0; i < plinths; ++i) {
        message += L"&#13;&#10;MOUNTED-READ;C:\\volumes\\a.vhd;{00000000-1111}&#13;&#10;";
    }
    return message;
}

class AllocationTest : public ModuleTest {
protected:
    AllocationTest() { logger.levels = 0; }
    /// Returns the allocations for each of `items`, without those that come less than once an item, as a list's growth.
    template <typename Work>
    long PerItem(DWORD items, Work work)
    {
        work(); // what is allocated once and kept
        const AllocationCounter counter(module);
        work();
        return AllocationCounter::Take() / static_cast<long>(items);
    }
};

TEST_F(AllocationTest, CountsThoseOfACrashAndOfAValue)
{
    for (const wchar_t* message :
         {L"short", L"one line&#13;&#10;and another&#13;&#10;and a third that ends the text"}) {
        LoadEvents(Event(message));
        EXPECT_EQ(Subscribe(), S_OK);
        // The buffers of the values and the message, and the record.
        EXPECT_EQ(PerItem(kItems, [] { Deliver(0, kItems); }), 3);
        const AllocationCounter counter(module);
        EXPECT_EQ(Collect(), S_OK);
        EXPECT_EQ(AllocationCounter::Take() / static_cast<long>(2 * kItems), 3);
    }
}

TEST_F(AllocationTest, CountsThoseOfALaminaEvent)
{
    const std::pair<std::wstring, long> kinds[] = {
        {L"User is logging in", 2},
        {L"User is logging off", 2},
        {L"New volume event (mounted): a (VolumeType 2)", 2},
        {L"Heartbeat", 2},
        {Response(1), 4}, // and the plinth
        {L"Last volume loaded", 2},
    };
    std::wstring events;
    for (const auto& [message, allocations] : kinds) {
        events += Event(message, L"2024-03-05T07:08:09Z", L"korvex");
    }
    LoadEvents(events + Event(Response(kItems), L"2024-03-05T07:08:09Z", L"korvex"));
    EXPECT_EQ(Subscribe(kLamina), S_OK);
    DWORD index = 0;
    for (const auto& [message, allocations] : kinds) {
        SCOPED_TRACE(testing::PrintToString(message));
        EXPECT_EQ(PerItem(kItems, [index] { Deliver(index, kItems); }), allocations);
        ++index;
    }
    Deliver(0);
    Deliver(index);
    EXPECT_EQ(PerItem(kItems, [this] { EXPECT_EQ(Collect(kLamina), S_OK); }), 3);
}

} // namespace
