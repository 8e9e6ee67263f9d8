// examples/shared_databases.cpp: two clients of one process share a database
// file through managers: one object for both, names of their own, a lock
// that refuses the other, and the change notification each one receives.
//
//   shared_databases [FILE.dbc]
//
// Without an argument, a small database file is written to the temporary
// folder first.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <tavloms/tavloms.h>

namespace {

// Where a program with windows would get message boxes and posted messages,
// this one prints them.
int PrintMessageBox(const char* text, const char* caption, unsigned int /*style*/) {
    std::printf("  [message box \"%s\"] %s\n", caption != nullptr ? caption : "Error", text);
    return 1;
}

void PrintPost(HWND window, unsigned long threadId, unsigned int message, uintptr_t wParam,
               intptr_t lParam) {
    if (window == HWND_BROADCAST) {
        std::printf("  [post 0x%X to all windows]\n", message);
    } else if (window != nullptr) {
        std::printf("  [post 0x%X to window %p: from %p, database \"%s\"]\n", message,
                    static_cast<void*>(window), reinterpret_cast<void*>(wParam),
                    reinterpret_cast<const char*>(lParam));
    } else {
        std::printf("  [post 0x%X to thread %lu]\n", message, threadId);
    }
}

std::string WriteSampleFile() {
    TavloDatabase db;
    db.SetUserData("example 1.0");
    symblk* engine = db.CreateNode(0);
    std::snprintf(engine->name, sizeof engine->name, "%s", "Engine");
    msgblk* message = db.CreateMessage(0);
    std::snprintf(message->name, sizeof message->name, "%s", "EngineData");
    message->id = 0x100;
    message->dlc = 8;
    message->transmitter = engine;
    const char* folder = std::getenv("TMPDIR");
    const std::string path = std::string(folder != nullptr ? folder : "/tmp") +
                             "/tavloms_shared_example.dbc";
    std::remove(path.c_str());
    const unsigned int status = db.Write(path.c_str());
    if (status != TAVLO_STATUS_OK) {
        std::fprintf(stderr, "shared_databases: cannot write %s (status %u)\n", path.c_str(),
                     status);
        std::exit(1);
    }
    return path;
}

}  // namespace

int main(int argc, char** argv) {
    TAVLO_SET_MESSAGEBOX_HOOK(&PrintMessageBox);
    TAVLO_SET_POST_HOOK(&PrintPost);
    const std::string path = argc > 1 ? argv[1] : WriteSampleFile();

    TavloManager dashboard(reinterpret_cast<HWND>(std::uintptr_t{0x100}));
    TavloManager logger(reinterpret_cast<HWND>(std::uintptr_t{0x200}));
    const char* dashboardName = nullptr;
    const char* loggerName = nullptr;
    unsigned int status = dashboard.OpenDatabase(path.c_str(), &dashboardName, 0);
    if (status != TAVLO_STATUS_OK) {
        std::fprintf(stderr, "shared_databases: cannot open %s (status %u)\n", path.c_str(),
                     status);
        return 1;
    }
    status = logger.OpenDatabase(path.c_str(), &loggerName, "Bus", 0);
    if (status != TAVLO_STATUS_OK) {
        std::fprintf(stderr, "shared_databases: cannot open %s twice (status %u)\n",
                     path.c_str(), status);
        return 1;
    }
    TavloDatabase* shared = dashboard.GetDatabase(dashboardName);
    std::printf("%s is open as \"%s\" and as \"%s\": %s object, %u references\n",
                path.c_str(), dashboardName, loggerName,
                shared == logger.GetDatabase(loggerName) ? "one shared" : "two separate",
                shared->mRefCount);
    std::printf("version \"%s\", first message %s\n", shared->mUserData,
                shared->mMessages != nullptr ? shared->mMessages->name : "(none)");

    std::printf("dashboard locks it for reading: %s\n",
                dashboard.LockDatabase(dashboardName, "Dashboard, page 1") ? "granted"
                                                                            : "refused");
    std::printf("logger asks for a write lock:\n");
    const bool granted = TavloWriteLock::Create(logger, loggerName, "Logger") != nullptr;
    std::printf("  %s\n", granted ? "granted" : "refused");

    std::printf("the logger tells everyone that the database changed:\n");
    TavloManager::NotifyChanges(logger, *logger.GetDatabase(loggerName));

    logger.CloseDatabase(loggerName, true);
    std::printf("logger closed it into its cache: %u reference, %u cache\n", shared->mRefCount,
                shared->mCacheCount);
    return 0;
}
