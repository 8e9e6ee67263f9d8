// tools/tavlo/bus.cpp: frames read live from a SocketCAN interface (Linux),
// classic and FD, remote and error frames included, each with the time the
// kernel received it. Elsewhere a bus cannot be opened.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "log.h"

#if defined(__linux__)
#include <linux/can.h>
#include <linux/can/error.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#endif

namespace tavlo::tool {

#if defined(__linux__)
namespace {

// A raw CAN socket bound to one interface, taking FD frames and error
// frames and stamping each with its receive time; -1 after saying why not.
int OpenBus(const std::string& device) {
    const unsigned int index = if_nametoindex(device.c_str());
    if (device.empty() || device.size() >= IFNAMSIZ || index == 0) {
        std::fprintf(stderr, "%s: no such network interface\n", device.c_str());
        return -1;
    }
    const int bus = socket(PF_CAN, SOCK_RAW, CAN_RAW);
    if (bus < 0) {
        std::fprintf(stderr, "%s: cannot open a CAN socket: %s\n", device.c_str(),
                     std::strerror(errno));
        return -1;
    }
    const int on = 1;
    const can_err_mask_t errors = CAN_ERR_MASK;
    sockaddr_can address{};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(index);
    // FD frames are optional (a classic-only kernel refuses them); the rest is not.
    setsockopt(bus, SOL_CAN_RAW, CAN_RAW_FD_FRAMES, &on, sizeof on);
    if (setsockopt(bus, SOL_CAN_RAW, CAN_RAW_ERR_FILTER, &errors, sizeof errors) != 0 ||
        setsockopt(bus, SOL_SOCKET, SO_TIMESTAMP, &on, sizeof on) != 0 ||
        bind(bus, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        std::fprintf(stderr, "%s: cannot read the bus: %s\n", device.c_str(),
                     std::strerror(errno));
        close(bus);
        return -1;
    }
    return bus;
}

// The next frame off the bus into received, with its receive time; the
// size read (CAN_MTU or CANFD_MTU), 0 for something else, -1 on an error.
// When none is waiting, idle is called before waiting for one.
long Receive(int bus, canfd_frame& received, timeval& time, const std::function<void()>& idle) {
    iovec part{&received, sizeof received};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(timeval))];
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    ssize_t got = recvmsg(bus, &message, MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        if (idle) {
            idle();
        }
        message.msg_controllen = sizeof control;
        do {
            got = recvmsg(bus, &message, 0);
        } while (got < 0 && errno == EINTR);
    }
    if (got < 0) {
        return -1;
    }
    gettimeofday(&time, nullptr);
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_TIMESTAMP) {
            std::memcpy(&time, CMSG_DATA(part), sizeof time);
        }
    }
    return got == static_cast<ssize_t>(CAN_MTU) || got == static_cast<ssize_t>(CANFD_MTU) ? got
                                                                                          : 0;
}

}  // namespace

int ReadBus(const std::string& device, const std::function<void(const Frame&)>& sink,
            const std::function<void()>& idle) {
    const int bus = OpenBus(device);
    if (bus < 0) {
        return kFailed;
    }
    canfd_frame received{};
    timeval time{};
    char timeText[32];
    char idText[16];
    Frame frame;
    frame.channel = device;
    for (;;) {
        const long got = Receive(bus, received, time, idle);
        if (got < 0) {
            std::fprintf(stderr, "%s: %s\n", device.c_str(), std::strerror(errno));
            close(bus);
            return kFailed;
        }
        if (got == 0) {
            continue;
        }
        const canid_t id = received.can_id;
        const bool extended = (id & CAN_EFF_FLAG) != 0;
        frame.error = (id & CAN_ERR_FLAG) != 0;
        frame.remote = !frame.error && (id & CAN_RTR_FLAG) != 0;
        frame.id = extended ? (id & CAN_EFF_MASK) | kExtendedFlag : id & CAN_SFF_MASK;
        frame.length = frame.remote ? 0 : received.len;
        if (frame.length > 64) {
            frame.length = 64;
        }
        std::memset(frame.data, 0, sizeof frame.data);
        std::memcpy(frame.data, received.data, frame.length);
        const int timeLength = std::snprintf(timeText, sizeof timeText, "%lld.%06ld",
                                             static_cast<long long>(time.tv_sec),
                                             static_cast<long>(time.tv_usec));
        frame.time = std::string_view(timeText, static_cast<std::size_t>(timeLength));
        const int idLength = std::snprintf(idText, sizeof idText, extended ? "%08X" : "%03X",
                                           static_cast<unsigned int>(frame.id & ~kExtendedFlag));
        frame.idText = std::string_view(idText, static_cast<std::size_t>(idLength));
        sink(frame);
    }
}

#else

int ReadBus(const std::string& device, const std::function<void(const Frame&)>&,
            const std::function<void()>&) {
    std::fprintf(stderr, "%s: a bus can be read on Linux only (SocketCAN)\n", device.c_str());
    return kFailed;
}

#endif

}  // namespace tavlo::tool
