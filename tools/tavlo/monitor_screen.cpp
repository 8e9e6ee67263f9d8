// tools/tavlo/monitor_screen.cpp: the monitor's full-screen view, through
// ncurses. A thread reads the frames (ReadFrames) into the table, under a
// mutex; the main thread takes the table's rows ten times a second, draws
// them and reads the keys, so neither a fast stream nor a silent pipe holds
// up the other. What is shown and how is monitor_table.h's; this file only
// puts it on the terminal.
//
// Quitting restores the terminal first. A reader that is still blocked on a
// pipe cannot be woken, so the process then leaves without waiting for it.
#include "monitor_screen.h"

#include <curses.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "monitor_table.h"

namespace tavlo::tool::monitor {
namespace {

using SteadyClock = std::chrono::steady_clock;
constexpr auto kRedraw = std::chrono::milliseconds(100);
// How long quitting waits for the reader to end before leaving without it.
constexpr auto kReaderGrace = std::chrono::milliseconds(200);
constexpr std::size_t kShiftStep = 8;
constexpr int kEscape = 27;

const int kCaughtSignals[] = {SIGINT, SIGTERM, SIGHUP};
volatile std::sig_atomic_t gSignal = 0;

extern "C" void OnSignal(int signal) { gSignal = signal; }

// What the reader thread and the screen share, under mutex.
struct Shared {
    Shared(const DecodedDatabase& db, Pace pace) : table(db), clock(pace) {}

    std::mutex mutex;
    std::condition_variable changed;  // stop set (ends a replay's wait), or ended
    MessageTable table;
    FrameClock clock;
    bool stop = false;
    bool ended = false;
};

double Since(SteadyClock::time_point start) {
    return std::chrono::duration<double>(SteadyClock::now() - start).count();
}

void ReadInput(Shared& shared, const Request& request, Pace pace, SteadyClock::time_point start) {
    const auto add = [&](const Frame& frame) {
        std::unique_lock<std::mutex> lock(shared.mutex);
        if (shared.stop) {
            return;
        }
        const double time = shared.clock.Place(frame.time, Since(start));
        if (pace == Pace::kReplay) {
            const double due = std::min(shared.clock.DueAt(time), 1e9);  // within the clock's range
            shared.changed.wait_until(
                lock, start + std::chrono::duration_cast<SteadyClock::duration>(std::chrono::duration<double>(due)),
                [&shared] { return shared.stop; });
            if (shared.stop) {
                return;
            }
        }
        shared.table.Add(frame, time);
    };
    if (request.bus.empty()) {
        ReadFrames({request.input}, add);
    } else {
        ReadBus(request.bus, add);
    }
    const std::lock_guard<std::mutex> lock(shared.mutex);
    shared.ended = true;
    shared.changed.notify_all();
}

// Standard error into a temporary file while the screen is up (the reader
// reports lines that are not frames there); its latest line is shown on the
// status line, and all of it printed once the terminal is restored.
class CapturedErrors {
public:
    bool Start() {
        file_ = std::tmpfile();
        saved_ = dup(STDERR_FILENO);
        if (file_ == nullptr || saved_ < 0 || dup2(fileno(file_), STDERR_FILENO) < 0) {
            return false;
        }
        return true;
    }
    // The last line written so far, "" when none.
    const std::string& Latest() {
        char block[4096];
        for (ssize_t n; (n = pread(fileno(file_), block, sizeof block, static_cast<off_t>(read_))) > 0;) {
            read_ += static_cast<std::size_t>(n);
            for (ssize_t i = 0; i < n; ++i) {
                if (block[i] == '\n' || block[i] == '\r') {
                    if (!partial_.empty()) {
                        latest_ = partial_;
                    }
                    partial_.clear();
                } else {
                    partial_ += block[i];
                }
            }
        }
        return latest_;
    }
    bool Any() const { return read_ > 0; }
    // Standard error back, and what it was given printed on it.
    void Stop() {
        if (saved_ >= 0) {
            std::fflush(stderr);
            dup2(saved_, STDERR_FILENO);
            close(saved_);
            saved_ = -1;
        }
        if (file_ != nullptr) {
            Latest();
            std::rewind(file_);
            char block[4096];
            for (std::size_t n; (n = std::fread(block, 1, sizeof block, file_)) > 0;) {
                std::fwrite(block, 1, n, stderr);
            }
            std::fclose(file_);
            file_ = nullptr;
        }
    }

private:
    std::FILE* file_ = nullptr;
    int saved_ = -1;
    std::size_t read_ = 0;
    std::string partial_;
    std::string latest_;
};

// The terminal the view is drawn on: standard output when it is one, else
// /dev/tty; keys come from /dev/tty (standard input may carry the frames).
class Terminal {
public:
    // "" when the screen is up; else why not.
    std::string Open(bool framesOnStandardInput) {
        tty_ = open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (tty_ >= 0 && isatty(tty_) == 0) {
            close(tty_);
            tty_ = -1;
        }
        const bool outputIsTerminal = isatty(STDOUT_FILENO) != 0;
        if (!outputIsTerminal && tty_ < 0) {
            return "needs a terminal: neither standard output nor /dev/tty is one";
        }
        if (tty_ >= 0) {
            in_ = fdopen(dup(tty_), "r");
        } else if (!framesOnStandardInput && isatty(STDIN_FILENO) != 0) {
            in_ = stdin;
        } else {
            return "needs a terminal to read keys from: /dev/tty cannot be opened";
        }
        out_ = outputIsTerminal ? stdout : fdopen(dup(tty_), "w");
        if (in_ == nullptr || out_ == nullptr) {
            return std::string("cannot use the terminal: ") + std::strerror(errno);
        }
        std::setlocale(LC_CTYPE, "");  // UTF-8 text as the terminal takes it; numbers stay C's
        screen_ = newterm(nullptr, out_, in_);
        if (screen_ == nullptr) {
            const char* type = std::getenv("TERM");
            return std::string("cannot use the terminal of type '") + (type != nullptr ? type : "") + "'";
        }
        set_term(screen_);
        cbreak();
        noecho();
        nonl();
        keypad(stdscr, TRUE);
        set_escdelay(25);
        curs_set(0);
        return "";
    }

    // The terminal as it was.
    void Close() {
        if (screen_ != nullptr) {
            endwin();
            delscreen(screen_);
            screen_ = nullptr;
        }
        if (in_ != nullptr && in_ != stdin) {
            std::fclose(in_);
        }
        if (out_ != nullptr && out_ != stdout) {
            std::fclose(out_);
        } else {
            std::fflush(stdout);
        }
        in_ = out_ = nullptr;
        if (tty_ >= 0) {
            close(tty_);
            tty_ = -1;
        }
    }

private:
    int tty_ = -1;
    std::FILE* in_ = nullptr;
    std::FILE* out_ = nullptr;
    SCREEN* screen_ = nullptr;
};

// A line at row y, cut to the screen's width (and padded to it when filled).
void PutLine(int y, const std::string& text, bool filled = false) {
    const auto width = static_cast<std::size_t>(std::max(COLS, 0));
    std::string line = Clip(text, 0, 0, width);
    if (filled) {
        line += std::string(width - std::min(width, Columns(line)), ' ');
    }
    mvaddstr(y, 0, line.c_str());
}

class Screen {
public:
    Screen(const Request& request, Pace pace, Shared& shared, CapturedErrors& errors,
           SteadyClock::time_point start)
        : request_(request), pace_(pace), shared_(shared), errors_(errors), start_(start) {
        const std::lock_guard<std::mutex> lock(shared_.mutex);
        nameWidth_ = shared_.table.NameWidth();
    }

    // Takes the table's rows (not while paused) and whether the input ended.
    void Update() {
        const std::lock_guard<std::mutex> lock(shared_.mutex);
        if (!view_.paused) {
            rows_ = shared_.table.Rows(shared_.clock.Now(Since(start_)));
            frames_ = shared_.table.Frames();
        }
        ended_ = shared_.ended;
    }

    void Draw() {
        const auto width = static_cast<std::size_t>(std::max(COLS, 0));
        const std::size_t height = static_cast<std::size_t>(std::max(LINES - 3, 1));
        std::vector<const Row*> shown;
        for (const Row& row : rows_) {
            if (Matches(row.name, view_.filter)) {
                shown.push_back(&row);
            }
        }
        height_ = height;
        shownCount_ = shown.size();
        view_.Fit(shown.size(), height);
        std::size_t widest = 0;
        for (const Row* row : shown) {
            widest = std::max(widest, Columns(row->signals));
        }
        // The signals shift at most until the widest's last step is first.
        view_.shift = std::min(view_.shift, widest > 0 ? (widest - 1) / kShiftStep * kShiftStep : 0);

        erase();
        std::string title = "tavlo monitor  " + std::to_string(rows_.size()) + " messages  " +
                            std::to_string(frames_) + " frames";
        if (!view_.filter.empty()) {
            title += "  filter \"" + Displayable(view_.filter) + "\": " + std::to_string(shown.size()) +
                     " shown";
        }
        title += "  " + Displayable(request_.database) + "  " +
                 (request_.input == "-" ? std::string("standard input") : Displayable(request_.input));
        PutLine(0, title);
        attron(A_REVERSE);
        PutLine(1, Clip(HeaderLine(nameWidth_), SignalsColumn(nameWidth_), view_.shift, width), true);
        attroff(A_REVERSE);
        for (std::size_t i = 0; i < height && view_.top + i < shown.size(); ++i) {
            const std::string line = FormatRow(*shown[view_.top + i], nameWidth_);
            mvaddstr(static_cast<int>(2 + i), 0,
                     Clip(line, SignalsColumn(nameWidth_), view_.shift, width).c_str());
        }
        DrawStatus(width);
        refresh();
    }

    // Acts on a key; false to quit.
    bool Key(int key) {
        if (view_.editing) {
            Edit(key);
            return true;
        }
        const long page = static_cast<long>(height_);
        switch (key) {
        case 'q':
        case 'Q':
            return false;
        case 'p':
        case 'P':
        case ' ':
            view_.paused = !view_.paused;
            Update();
            break;
        case '/':
            view_.editing = true;
            view_.typed.clear();
            break;
        case kEscape:
            view_.filter.clear();
            view_.top = 0;
            break;
        case KEY_UP:
            view_.Scroll(-1, shownCount_, height_);
            break;
        case KEY_DOWN:
            view_.Scroll(1, shownCount_, height_);
            break;
        case KEY_PPAGE:
            view_.Scroll(-page, shownCount_, height_);
            break;
        case KEY_NPAGE:
            view_.Scroll(page, shownCount_, height_);
            break;
        case KEY_HOME:
            view_.top = 0;
            break;
        case KEY_END:
            view_.Scroll(static_cast<long>(shownCount_), shownCount_, height_);
            break;
        case KEY_LEFT:
            view_.shift -= std::min(view_.shift, kShiftStep);
            break;
        case KEY_RIGHT:
            view_.shift += kShiftStep;
            break;
        case 12:  // Ctrl-L
            clearok(curscr, TRUE);
            break;
        default:
            break;
        }
        return true;
    }

private:
    void Edit(int key) {
        if (key == '\n' || key == '\r' || key == KEY_ENTER) {
            view_.filter = view_.typed;
            view_.editing = false;
            view_.top = 0;
        } else if (key == kEscape) {
            view_.filter.clear();
            view_.typed.clear();
            view_.editing = false;
            view_.top = 0;
        } else if (key == KEY_BACKSPACE || key == 127 || key == 8) {
            while (!view_.typed.empty() &&
                   (static_cast<unsigned char>(view_.typed.back()) & 0xC0) == 0x80) {
                view_.typed.pop_back();
            }
            if (!view_.typed.empty()) {
                view_.typed.pop_back();
            }
        } else if (key >= 32 && key < 256 && key != 127) {
            view_.typed += static_cast<char>(key);
        }
    }

    void DrawStatus(std::size_t width) {
        const int y = std::max(LINES - 1, 2);
        if (view_.editing) {
            const std::string prompt = "filter: " + Displayable(view_.typed);
            PutLine(y, prompt + "_   (Enter applies, Escape clears)");
            return;
        }
        std::string state = view_.paused        ? "PAUSED"
                            : ended_            ? "input ended"
                            : pace_ == Pace::kReplay ? "replaying"
                                                     : "reading";
        const std::string& latest = errors_.Latest();
        if (!latest.empty()) {
            state += "  " + Displayable(latest);
        }
        const std::string keys = "q quit  p pause  / filter  arrows PgUp PgDn scroll";
        std::string line = state;
        if (Columns(state) + 2 + keys.size() <= width) {
            line += std::string(width - Columns(state) - keys.size(), ' ') + keys;
        }
        attron(A_REVERSE);
        PutLine(y, line, true);
        attroff(A_REVERSE);
    }

    const Request& request_;
    Pace pace_;
    Shared& shared_;
    CapturedErrors& errors_;
    SteadyClock::time_point start_;
    std::size_t nameWidth_ = 0;
    View view_;
    std::vector<Row> rows_;
    std::uint64_t frames_ = 0;
    bool ended_ = false;
    std::size_t height_ = 1;
    std::size_t shownCount_ = 0;
};

void CatchSignals() {
    struct sigaction action {};
    action.sa_handler = &OnSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no SA_RESTART: a wait for a key ends
    for (const int signal : kCaughtSignals) {
        sigaction(signal, &action, nullptr);
    }
}

}  // namespace

int RunScreen(const Request& request) {
    DecodedDatabase db;
    if (!LoadDecoder(request.database, db)) {
        return kFailed;
    }
    const bool standardInput = request.input == "-" && request.bus.empty();
    Pace pace = Pace::kLive;
    if (request.bus.empty() && !standardInput) {
        struct stat info {};
        if (stat(request.input.c_str(), &info) != 0) {
            std::fprintf(stderr, "%s: cannot be read: %s\n", request.input.c_str(), std::strerror(errno));
            return kFailed;
        }
        if (S_ISREG(info.st_mode)) {
            pace = Pace::kFast;  // a pipe or a device is live
        }
    }
    if (request.replay) {
        pace = Pace::kReplay;
    }

    CatchSignals();  // before the screen: ncurses then leaves these signals to us
    Terminal terminal;
    const std::string unusable = terminal.Open(standardInput);
    if (!unusable.empty()) {
        terminal.Close();
        std::fprintf(stderr, "tavlo monitor: %s\n", unusable.c_str());
        return kFailed;
    }
    CapturedErrors errors;
    if (!errors.Start()) {
        terminal.Close();
        errors.Stop();
        std::fprintf(stderr, "tavlo monitor: cannot keep standard error: %s\n", std::strerror(errno));
        return kFailed;
    }

    const SteadyClock::time_point start = SteadyClock::now();
    Shared shared(db, pace);
    // The reader takes no signals: they wake the main thread's wait for a key.
    sigset_t blocked;
    sigset_t previous;
    sigemptyset(&blocked);
    for (const int signal : kCaughtSignals) {
        sigaddset(&blocked, signal);
    }
    sigaddset(&blocked, SIGWINCH);
    sigaddset(&blocked, SIGTSTP);
    pthread_sigmask(SIG_BLOCK, &blocked, &previous);
    std::thread reader(ReadInput, std::ref(shared), std::cref(request), pace, start);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);

    Screen screen(request, pace, shared, errors, start);
    SteadyClock::time_point next = SteadyClock::now();
    while (gSignal == 0) {
        const SteadyClock::time_point now = SteadyClock::now();
        if (now >= next) {
            screen.Update();
            screen.Draw();
            next = now + kRedraw;
        }
        const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(next - now).count();
        timeout(static_cast<int>(std::max<long long>(wait, 1)));
        const int key = getch();
        if (key == ERR) {
            continue;
        }
        if (!screen.Key(key)) {
            break;
        }
        screen.Draw();
    }

    // The terminal first; then the reader, which a stop ends unless it is
    // blocked on its input.
    terminal.Close();
    std::unique_lock<std::mutex> lock(shared.mutex);
    shared.stop = true;
    shared.changed.notify_all();
    const bool ended = shared.changed.wait_for(lock, kReaderGrace, [&shared] { return shared.ended; });
    lock.unlock();
    errors.Stop();
    const int status = errors.Any() ? kFailed : kOk;
    if (gSignal != 0) {
        std::signal(gSignal, SIG_DFL);
        std::raise(gSignal);
    }
    if (!ended) {
        std::fflush(stdout);
        std::fflush(stderr);
        std::_Exit(status);
    }
    reader.join();
    return status;
}

}  // namespace tavlo::tool::monitor
