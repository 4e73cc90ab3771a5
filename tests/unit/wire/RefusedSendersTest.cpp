#include "wire/RefusedSenders.h"

#include <gtest/gtest.h>

namespace
{

using namespace std::chrono_literals;

TEST(RefusedSendersTest, OneLineASecondOfAUserTellsHowOften)
{
    RefusedSenders senders;
    RefusedSenders::Time now;
    const auto told = [&] {
        const auto next = senders.next(now);
        return next ? next->request + std::to_string(next->times) : "-";
    };
    senders.add(1, "/tmp/a", "A", "");
    EXPECT_EQ("A1", told());
    senders.add(1, "/tmp/a", "B", "");
    senders.add(1, "/tmp/a", "C", std::string(70000, 'c'));
    senders.add(2, "/tmp/b", "D", "");
    EXPECT_EQ("D1", told());
    now += 999ms;
    EXPECT_EQ("-", told());
    now += 1ms;
    EXPECT_EQ("C " + std::string(64, 'c') + "2", told());
    EXPECT_EQ("-", told());

    now += 1s;
    EXPECT_EQ("-", told()); // those two are forgotten
    for (uid_t user = 100; user < 200; ++user)
        senders.add(user, "/tmp/c", "E", "");
    for (int line = 1; line < 64; ++line)
        EXPECT_EQ("E1", told()) << line;
    EXPECT_EQ("E37", told());
    EXPECT_EQ("-", told());
}

} // namespace
