// manager/notify.cpp: telling managers that a database changed, by posting
// the registered notification message to all top-level windows and to each
// manager's window or thread.
#include <cstdint>

#include "manager/frame.h"
#include "platform/platform.h"
#include "tavloms/manager.h"

void TavloManager::NotifyChanges(const TavloManager& sender, const TavloDatabase& db) {
    tavlo::platform::PostToWindow(HWND_BROADCAST, tavlo::manager::NotificationMessage(), 0, 0);
    sender.NotifyChanges(db, sender);
    for (const MngrListNode* entry = GetManagersList(); entry != nullptr; entry = entry->mNext) {
        if (entry->mManager != &sender) {
            entry->mManager->NotifyChanges(db, sender);
        }
    }
}

void TavloManager::NotifyChanges(const TavloDatabase& db, const TavloManager& sender) const {
    // lParam is this manager's own handle of the database, so the receiver
    // can pass it straight back; wParam lets it recognise its own changes.
    for (const DbListNode* node = mDatabases; node != nullptr; node = node->mNext) {
        if (!(*node->mDatabase == db)) {
            continue;
        }
        const auto name = reinterpret_cast<std::intptr_t>(node->mName);
        if (mWindow != nullptr) {
            tavlo::platform::PostToWindow(mWindow, tavlo::manager::NotificationMessage(),
                                          reinterpret_cast<std::uintptr_t>(sender.mWindow), name);
        } else if (mThreadId != 0) {
            tavlo::platform::PostToThread(mThreadId, tavlo::manager::NotificationMessage(),
                                          sender.mThreadId, name);
        }
    }
}
