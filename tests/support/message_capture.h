// tests/support/message_capture.h: catches the message boxes the library shows while an instance is alive.
#ifndef TAVLOMS_TESTS_MESSAGE_CAPTURE_H
#define TAVLOMS_TESTS_MESSAGE_CAPTURE_H

#include <string>
#include <vector>

#include "tavloms/platform.h"

namespace tavlo::test {

struct ShownMessage {
    std::string text;
    bool hasCaption;
    std::string caption;
    unsigned int style;
};

class MessageCapture {
public:
    MessageCapture() : previous_(TAVLO_SET_MESSAGEBOX_HOOK(&Record)) { Shown().clear(); }
    ~MessageCapture() { TAVLO_SET_MESSAGEBOX_HOOK(previous_); }

    const std::vector<ShownMessage>& messages() const { return Shown(); }

private:
    static std::vector<ShownMessage>& Shown() {
        static std::vector<ShownMessage> shown;
        return shown;
    }
    static int Record(const char* text, const char* caption, unsigned int style) {
        Shown().push_back({text != nullptr ? text : "", caption != nullptr,
                           caption != nullptr ? caption : "", style});
        return 1;
    }

    TAVLO_MESSAGEBOX_HOOK previous_;
};

}  // namespace tavlo::test

#endif  // TAVLOMS_TESTS_MESSAGE_CAPTURE_H
