#include "common/Event.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

using namespace mervasto;

TEST(EventTest, ListenersLiveAsLongAsTheirSubscription) {
    Event<int> changed;
    std::vector<int> seen;
    std::optional<Subscription> first = changed.subscribe([&](int v) { seen.push_back(v); });
    Subscription second = changed.subscribe([&](int v) { seen.push_back(10 * v); });
    changed(1);
    first.reset();
    changed(2);
    EXPECT_EQ(seen, (std::vector<int>{1, 10, 20}));
}

TEST(EventTest, ListenersMayLeaveOrJoinWhileCalled) {
    Event<> tick;
    int once = 0, later = 0;
    Subscription joined;
    Subscription self = tick.subscribe([&] {
        ++once;
        self.reset();  // a listener that leaves while it is called
        joined = tick.subscribe([&] { ++later; });
    });
    tick();
    tick();
    EXPECT_EQ(once, 1);
    EXPECT_EQ(later, 1);  // joined during the first call, called from the second
}

TEST(EventTest, ASubscriptionMayOutliveItsEvent) {
    Subscription s;
    {
        Event<> gone;
        s = gone.subscribe([] {});
    }
    s.reset();  // nothing to do, no crash
    SUCCEED();
}
