// Reading and writing a database file of 20,000 messages with 8 signals each
// (about 14 MB, see generated_database.h), the peak memory of a read, opening
// the file through a manager, and reading the largest files of the corpus.
//
//     build/release/bench/tavloms_bench --benchmark_filter=Database
//
// Targets: reading and writing at 400 MB/s or more; a read at most 2 times
// the time of loading the file line by line and counting its lines, both
// timed in the same run (counter floor_ratio, and floor_MBps); a read that needs at most 3 times the
// file's size in memory at its peak (peak_ratio); opening through a manager
// at most 10% slower than the plain read, timed side by side (open_ratio).
#include <benchmark/benchmark.h>

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>
#include <fstream>
#include <string>
#include <system_error>

#include "generated_database.h"
#include "tavloms/exception.h"
#include "tavloms/tavloms.h"

namespace {

namespace fs = std::filesystem;

fs::path TempPath(const char* suffix) {
    return fs::temp_directory_path() /
           ("tavloms_bench_" + std::to_string(static_cast<long>(getpid())) + suffix);
}

// The generated database, written once to a temporary file that is removed
// when the program ends. The text itself is not kept in memory.
class GeneratedFile {
public:
    static const GeneratedFile& Get() {
        static GeneratedFile file;
        return file;
    }

    const std::string& Path() const { return path_; }
    size_t Size() const { return size_; }
    bool Ok() const { return ok_; }

    GeneratedFile(const GeneratedFile&) = delete;
    GeneratedFile& operator=(const GeneratedFile&) = delete;

private:
    GeneratedFile() : path_(TempPath("_input.dbc").string()) {
        const std::string text = tavloms_bench::GenerateDatabaseText();
        size_ = text.size();
        std::ofstream out(path_, std::ios::binary | std::ios::trunc);
        out.write(text.data(), static_cast<std::streamsize>(text.size()));
        out.close();
        ok_ = static_cast<bool>(out) && size_ >= 12u * 1000 * 1000 && size_ <= 16u * 1000 * 1000;
        std::fprintf(stderr, "generated database file: %zu bytes (%s)\n", size_,
                     ok_ ? "12 to 16 MB" : "NOT 12 to 16 MB, or not written");
    }
    ~GeneratedFile() {
        std::error_code ignored;
        fs::remove(path_, ignored);
    }

    std::string path_;
    size_t size_ = 0;
    bool ok_ = false;
};

// The last message the library showed, instead of a line on standard error.
std::string& LastMessage() {
    static std::string message;
    return message;
}

int KeepMessage(const char* text, const char* caption, unsigned int) {
    LastMessage() = std::string(caption ? caption : "Error") + ": " + (text ? text : "");
    return 1;
}

// Reads the file into an empty root. Returns an empty string on success,
// otherwise what went wrong; the root then holds what had been read.
std::string ReadInto(const std::string& path, tavlo_root_t& root) {
    TAVLO_SET_MESSAGEBOX_HOOK(KeepMessage);
    LastMessage().clear();
    try {
        unsigned int result = TAVLO_READ(path.c_str(), &root.nodes, &root.messages, &root.envvars,
                                         &root.bit_timings, &root.attr_defs, &root.db_attrs,
                                         &root.categories, &root.filter, &root.comment,
                                         &root.version, &root.sig_types, &root.value_tables);
        if (result != 0) return "read returned " + std::to_string(result) + " " + LastMessage();
    } catch (const TavloException& e) {
        return "read failed (code " + std::to_string(e.mCode) + ") " + LastMessage();
    }
    return std::string();
}

// Checks that a read took in every message and signal of the generated file.
std::string CheckComplete(const tavlo_root_t& root) {
    unsigned long messages = 0, signals = 0;
    for (const msgblk* message = root.messages; message; message = message->next) {
        ++messages;
        for (const sigblk* signal = message->signals; signal; signal = signal->next) ++signals;
    }
    if (messages == tavloms_bench::kGeneratedMessages &&
        signals == static_cast<unsigned long>(tavloms_bench::kGeneratedMessages) *
                       tavloms_bench::kGeneratedSignalsPerMessage) {
        return std::string();
    }
    return "the read gave " + std::to_string(messages) + " messages and " +
           std::to_string(signals) + " signals";
}

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

// The floor a read is measured against: the file loaded line by line, as a
// program that takes in a text file does, and its lines counted. Returns
// the count.
std::size_t LoadAndCountLines(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string line;
    std::size_t lines = 0;
    while (std::getline(in, line)) {
        ++lines;
    }
    return lines;
}

// Reads a file into a root and releases it again, the release untimed (the
// benchmark's clock paused for it, unless `paused` says it is), adding the
// seconds the read took to `seconds`. False, the benchmark skipped with the
// reason, when the read failed (with `check`, also when a generated file was
// read incompletely).
bool ReadAndRelease(benchmark::State& state, const std::string& path, bool paused,
                    double* seconds, bool check = false) {
    tavlo_root_t root;
    std::memset(&root, 0, sizeof root);
    const Clock::time_point start = Clock::now();
    std::string error = ReadInto(path, root);
    *seconds += Seconds(start, Clock::now());
    if (!paused) state.PauseTiming();
    if (check && error.empty()) error = CheckComplete(root);
    TAVLO_FREE_ROOT(&root);
    if (!paused) state.ResumeTiming();
    if (!error.empty()) state.SkipWithError(error.c_str());
    return error.empty();
}

void BM_ReadDatabaseFile(benchmark::State& state) {
    const GeneratedFile& file = GeneratedFile::Get();
    if (!file.Ok()) {
        state.SkipWithError("the generated database file is wrong");
        return;
    }
    double readSeconds = 0;
    double floorSeconds = 0;
    for (auto _ : state) {
        if (!ReadAndRelease(state, file.Path(), false, &readSeconds, state.iterations() == 0)) {
            break;
        }
        state.PauseTiming();
        const Clock::time_point floorStart = Clock::now();
        benchmark::DoNotOptimize(LoadAndCountLines(file.Path()));
        floorSeconds += Seconds(floorStart, Clock::now());
        state.ResumeTiming();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(file.Size()));
    state.counters["file_bytes"] = static_cast<double>(file.Size());
    if (floorSeconds > 0) {
        state.counters["floor_ratio"] = readSeconds / floorSeconds;
        state.counters["floor_MBps"] =
            static_cast<double>(state.iterations()) * static_cast<double>(file.Size()) /
            floorSeconds / 1e6;
    }
}
BENCHMARK(BM_ReadDatabaseFile)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_WriteDatabaseFile(benchmark::State& state) {
    const GeneratedFile& file = GeneratedFile::Get();
    if (!file.Ok()) {
        state.SkipWithError("the generated database file is wrong");
        return;
    }
    tavlo_root_t root;
    std::memset(&root, 0, sizeof root);
    std::string error = ReadInto(file.Path(), root);
    if (error.empty()) error = CheckComplete(root);
    if (!error.empty()) {
        TAVLO_FREE_ROOT(&root);
        state.SkipWithError(error.c_str());
        return;
    }
    const std::string output = TempPath("_output.dbc").string();
    for (auto _ : state) {
        unsigned int result = TAVLO_WRITE(output.c_str(), root.nodes, root.messages, root.envvars,
                                          root.bit_timings, root.attr_defs, root.db_attrs,
                                          root.categories, root.filter, root.comment,
                                          root.version, root.sig_types, root.value_tables);
        if (result != 0) {
            state.SkipWithError(("write returned " + std::to_string(result)).c_str());
            break;
        }
    }
    std::error_code code;
    const uintmax_t written = fs::file_size(output, code);
    fs::remove(output, code);
    TAVLO_FREE_ROOT(&root);
    if (written == static_cast<uintmax_t>(-1)) return;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(written));
    state.counters["written_bytes"] = static_cast<double>(written);
}
BENCHMARK(BM_WriteDatabaseFile)->Unit(benchmark::kMillisecond)->UseRealTime();

// Opening the file through a manager, and the plain read of it, alternated
// in the same run: open_ratio is the time of the one over the other.
void BM_OpenDatabaseFile(benchmark::State& state) {
    const GeneratedFile& file = GeneratedFile::Get();
    if (!file.Ok()) {
        state.SkipWithError("the generated database file is wrong");
        return;
    }
    TAVLO_SET_MESSAGEBOX_HOOK(KeepMessage);
    TavloManager manager(static_cast<void*>(nullptr));
    double openSeconds = 0;
    double readSeconds = 0;
    for (auto _ : state) {
        const char* db = nullptr;
        const Clock::time_point start = Clock::now();
        const int status = manager.OpenDatabase(file.Path().c_str(), &db, 0);
        const Clock::time_point opened = Clock::now();
        state.PauseTiming();
        if (status != TAVLO_STATUS_OK) {
            state.SkipWithError(("OpenDatabase returned " + std::to_string(status)).c_str());
            break;
        }
        manager.CloseDatabase(db, false);
        openSeconds += Seconds(start, opened);
        const bool read = ReadAndRelease(state, file.Path(), true, &readSeconds);
        state.ResumeTiming();
        if (!read) {
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(file.Size()));
    if (readSeconds > 0) state.counters["open_ratio"] = openSeconds / readSeconds;
}
BENCHMARK(BM_OpenDatabaseFile)->Unit(benchmark::kMillisecond)->UseRealTime();

// The largest files of the corpus (argument 0 the largest), read as the
// generated one is.
void BM_ReadDatabaseCorpusFile(benchmark::State& state) {
    std::vector<std::pair<std::uintmax_t, std::string>> files;
    std::error_code code;
    for (const fs::directory_entry& entry : fs::directory_iterator(TAVLOMS_CORPUS_DIR, code)) {
        if (entry.path().extension() == ".dbc") {
            files.emplace_back(entry.file_size(code), entry.path().string());
        }
    }
    std::sort(files.rbegin(), files.rend());
    const auto rank = static_cast<std::size_t>(state.range(0));
    if (rank >= files.size()) {
        state.SkipWithError("no such corpus file");
        return;
    }
    const std::string& path = files[rank].second;
    state.SetLabel(fs::path(path).filename().string());
    double seconds = 0;
    for (auto _ : state) {
        if (!ReadAndRelease(state, path, false, &seconds)) {
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(files[rank].first));
}
BENCHMARK(BM_ReadDatabaseCorpusFile)->DenseRange(0, 2)->Unit(benchmark::kMicrosecond);

// One field of /proc/self/status in bytes ("VmRSS", "VmHWM"), or -1.
long long StatusBytes(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    const size_t length = std::strlen(field);
    while (std::getline(status, line)) {
        if (line.compare(0, length, field) == 0 && line.size() > length && line[length] == ':') {
            return std::stoll(line.substr(length + 1)) * 1024;  // the value is in kB
        }
    }
    return -1;
}

// What the child reports to the parent.
struct PeakReport {
    long long before;  // resident bytes just before the read
    long long peak;    // highest resident bytes during the read
    char error[200];
};

// Runs in the forked child: resets the high-water mark, reads, reports.
PeakReport MeasurePeak(const std::string& path) {
    PeakReport report;
    std::memset(&report, 0, sizeof report);
#if defined(__GLIBC__)
    malloc_trim(0);  // free heap pages of earlier runs must not hide the read's own
#endif
    {
        std::ofstream clear("/proc/self/clear_refs");
        clear << "5";
        clear.close();
        if (!clear) {
            std::snprintf(report.error, sizeof report.error,
                          "cannot reset the peak through /proc/self/clear_refs");
            return report;
        }
    }
    report.before = StatusBytes("VmRSS");
    tavlo_root_t root;
    std::memset(&root, 0, sizeof root);
    std::string error = ReadInto(path, root);
    report.peak = StatusBytes("VmHWM");
    if (!error.empty()) std::snprintf(report.error, sizeof report.error, "%s", error.c_str());
    if (report.before < 0 || report.peak < 0) {
        std::snprintf(report.error, sizeof report.error, "no VmRSS/VmHWM in /proc/self/status");
    }
    return report;
}

void BM_ReadDatabaseFilePeakMemory(benchmark::State& state) {
    const GeneratedFile& file = GeneratedFile::Get();
    if (!file.Ok()) {
        state.SkipWithError("the generated database file is wrong");
        return;
    }
    PeakReport report;
    std::memset(&report, 0, sizeof report);
    for (auto _ : state) {
        int channel[2];
        if (pipe(channel) != 0) {
            state.SkipWithError("pipe failed");
            return;
        }
        std::fflush(nullptr);
        pid_t child = fork();
        if (child < 0) {
            close(channel[0]);
            close(channel[1]);
            state.SkipWithError("fork failed");
            return;
        }
        if (child == 0) {
            close(channel[0]);
            PeakReport measured = MeasurePeak(file.Path());
            ssize_t sent = write(channel[1], &measured, sizeof measured);
            _exit(sent == static_cast<ssize_t>(sizeof measured) ? 0 : 1);  // no cleanup here
        }
        close(channel[1]);
        ssize_t received = 0;
        while (received < static_cast<ssize_t>(sizeof report)) {
            ssize_t n = read(channel[0], reinterpret_cast<char*>(&report) + received,
                             sizeof report - static_cast<size_t>(received));
            if (n <= 0) break;
            received += n;
        }
        close(channel[0]);
        int status = 0;
        waitpid(child, &status, 0);
        if (received != static_cast<ssize_t>(sizeof report) || !WIFEXITED(status) ||
            WEXITSTATUS(status) != 0) {
            state.SkipWithError("the measuring process did not report (crashed?)");
            return;
        }
        report.error[sizeof report.error - 1] = '\0';
        if (report.error[0] != '\0') {
            state.SkipWithError(report.error);
            return;
        }
    }
    const double peak = static_cast<double>(report.peak - report.before);
    state.counters["peak_bytes"] = peak;
    state.counters["peak_ratio"] = peak / static_cast<double>(file.Size());
    state.counters["file_bytes"] = static_cast<double>(file.Size());
}
BENCHMARK(BM_ReadDatabaseFilePeakMemory)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1);

}  // namespace
