#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace mervasto {

// A typed notification with any number of listeners. A listener stays
// subscribed while the Subscription returned for it lives, so a window that
// closes, or a test that ends, cannot be called afterwards:
//   Subscription s = state.passFinished.subscribe([&] { ++passes; });
//   state.passFinished();  // calls every listener, in subscription order
// Listeners may subscribe or unsubscribe while the event is being raised; a
// listener added then is called from the next raise on.
class Subscription {
public:
    Subscription() = default;
    explicit Subscription(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
    Subscription(Subscription&& o) noexcept : cancel_(std::exchange(o.cancel_, nullptr)) {}
    Subscription& operator=(Subscription&& o) noexcept {
        if (this != &o) {
            reset();
            cancel_ = std::exchange(o.cancel_, nullptr);
        }
        return *this;
    }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription() { reset(); }

    void reset() {
        if (cancel_) std::exchange(cancel_, nullptr)();
    }

private:
    std::function<void()> cancel_;
};

template <class... Args>
class Event {
public:
    Event() = default;
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    [[nodiscard]] Subscription subscribe(std::function<void(Args...)> listener) {
        const uint64_t id = ++slots_->lastId;
        slots_->list.push_back({id, std::make_shared<std::function<void(Args...)>>(std::move(listener))});
        std::weak_ptr<Slots> weak = slots_;
        return Subscription([weak, id] {
            if (auto s = weak.lock()) std::erase_if(s->list, [id](const Slot& slot) { return slot.id == id; });
        });
    }

    void operator()(Args... args) const {
        // A copy, so that listeners may (un)subscribe while being called.
        const std::vector<Slot> now = slots_->list;
        for (const Slot& slot : now)
            if (isSubscribed(slot.id)) (*slot.call)(args...);
    }

    bool empty() const { return slots_->list.empty(); }

private:
    struct Slot {
        uint64_t id;
        std::shared_ptr<std::function<void(Args...)>> call;
    };
    struct Slots {
        std::vector<Slot> list;
        uint64_t lastId = 0;
    };
    bool isSubscribed(uint64_t id) const {
        for (const Slot& s : slots_->list)
            if (s.id == id) return true;
        return false;
    }

    std::shared_ptr<Slots> slots_ = std::make_shared<Slots>();
};

}  // namespace mervasto
