// tests/support/post_capture.h: catches the messages the library posts while an instance is alive.
#ifndef TAVLOMS_TESTS_POST_CAPTURE_H
#define TAVLOMS_TESTS_POST_CAPTURE_H

#include <cstdint>
#include <tuple>
#include <vector>

#include "tavloms/platform.h"

namespace tavlo::test {

struct PostedMessage {
    HWND window;
    unsigned long threadId;
    unsigned int message;
    std::uintptr_t wParam;
    std::intptr_t lParam;

    bool operator==(const PostedMessage& o) const {
        return std::tie(window, threadId, message, wParam, lParam) == std::tie(o.window, o.threadId, o.message, o.wParam, o.lParam);
    }
};

class PostCapture {
public:
    PostCapture() : previous_(TAVLO_SET_POST_HOOK(&Record)) { Posted().clear(); }
    ~PostCapture() { TAVLO_SET_POST_HOOK(previous_); }

    const std::vector<PostedMessage>& posts() const { return Posted(); }
    void clear() { Posted().clear(); }

private:
    static std::vector<PostedMessage>& Posted() {
        static std::vector<PostedMessage> posted;
        return posted;
    }
    static void Record(HWND window, unsigned long threadId, unsigned int message,
                       std::uintptr_t wParam, std::intptr_t lParam) {
        Posted().push_back({window, threadId, message, wParam, lParam});
    }

    TAVLO_POST_HOOK previous_;
};

}  // namespace tavlo::test

#endif  // TAVLOMS_TESTS_POST_CAPTURE_H
