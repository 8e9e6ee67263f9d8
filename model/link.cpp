// model/link.cpp: linking records into lists and unlinking and releasing them.
//
// Deletions release exactly what each one names and nothing more; what a
// record owned beyond that stays allocated, and references other records
// hold to it are not cleared. The callers (the write manager) clear and take
// what they need first. This is deliberate: keep the release lists as they
// are.
#include "model/model.h"
#include "platform/platform.h"

namespace {

constexpr const char* kModule = "canddbm";

// Links record so that it follows the position-th record of the list (0: at
// the head). `missing` is the assertion reported when that record does not
// exist.
template <class T>
void InsertAt(T** head, T* record, unsigned int position, const char* missing) {
    TAVLO_ASSERT(head != NULL, kModule);
    TAVLO_ASSERT(record != NULL, kModule);
    if (position == 0) {
        record->next = *head;
        *head = record;
        return;
    }
    T* s = *head;
    for (unsigned int i = 1; i < position && s != nullptr; ++i) {
        s = s->next;
    }
    if (s == nullptr) {
        tavlo::platform::AssertFailed(missing, kModule, __LINE__);
    }
    record->next = s->next;
    s->next = record;
}

// Unlinks record from the list; false when it is not in the list.
template <class T>
bool Unlink(T*& head, T* record) {
    if (head == record) {
        head = record->next;
        return true;
    }
    for (T* before = head; before != nullptr; before = before->next) {
        if (before->next == record) {
            before->next = record->next;
            return true;
        }
    }
    return false;
}

// Unlinks a record from a list given by the address of its head and says
// whether there is a record to release: a null record is ignored, and one
// that is not in the list is still released by the callers.
template <class T>
bool Detach(T** head, T* record) {
    if (record == nullptr) {
        return false;
    }
    TAVLO_ASSERT(head != NULL, kModule);
    Unlink(*head, record);
    return true;
}

}  // namespace

extern "C" {

void CAN_INSERT_SYMBOL(symblk** head, symblk* node, unsigned int position) {
    InsertAt(head, node, position, "s != NULL");
}

void CAN_INSERT_MSG(msgblk** head, msgblk* message, unsigned int position) {
    InsertAt(head, message, position, "m != NULL");
}

void CAN_INSERT_EVBLK(env_var_blk** head, env_var_blk* envvar, unsigned int position) {
    InsertAt(head, envvar, position, "e != NULL");
}

void CAN_INSERT_SIGTYPE(sigtype** head, sigtype* type, unsigned int position) {
    InsertAt(head, type, position, "s != NULL");
}

void CAN_INSERT_VALTABLE(valtable** head, valtable* table, unsigned int position) {
    InsertAt(head, table, position, "vt != NULL");
}

void CAN_INSERT_SIG(msgblk* msg, sigblk* signal, unsigned int position) {
    TAVLO_ASSERT(msg != NULL, kModule);
    sigblk* signals = msg->signals;
    InsertAt(&signals, signal, position, "s != NULL");
    msg->signals = signals;
}

void CAN_DELETE_SYMBOL(symblk** head, symblk* node) {
    if (!Detach(head, node)) {
        return;
    }
    TAVLO_MFREE(node->comment);
    TAVLO_MFREE(node);
}

void CAN_DELETE_MSG(msgblk** head, msgblk* message) {
    if (!Detach(head, message)) {
        return;
    }
    message->next = nullptr;
    message->signals = CAN_DELETE_SIGLIST(message->signals);
    TAVLO_MFREE(message->comment);
    TAVLO_MFREE(message);
}

void CAN_DELETE_EVBLK(env_var_blk** head, env_var_blk* envvar) {
    if (!Detach(head, envvar)) {
        return;
    }
    TAVLO_MFREE(envvar->comment);
    TAVLO_MFREE(envvar);
}

void CAN_DELETE_BTL(btlblk** head, btlblk* timing) {
    if (!Detach(head, timing)) {
        return;
    }
    TAVLO_MFREE(timing);
}

void CAN_DELETE_ATTR_DEF(attr_def** head, attr_def* def) {
    if (!Detach(head, def)) {
        return;
    }
    // Unlike TAVLO_FREE, an ENUM definition's default text stays allocated.
    if (def->value_type == TAVLO_ATTR_ENUM) {
        TAVLO_MFREE(def->minimum.text);
    } else if (def->value_type == TAVLO_ATTR_STRING) {
        TAVLO_MFREE(def->default_value.text);
    }
    TAVLO_MFREE(def);
}

void CAN_DELETE_CATEGORY(cat** head, cat* category) {
    if (!Detach(head, category)) {
        return;
    }
    TAVLO_MFREE(category);
}

void CAN_DELETE_SIGTYPE(sigtype** head, sigtype* type) {
    if (!Detach(head, type)) {
        return;
    }
    TAVLO_MFREE(type);  // its comment and attribute values are kept
}

void CAN_DELETE_VALTABLE(valtable** head, valtable* table) {
    if (!Detach(head, table)) {
        return;
    }
    TAVLO_MFREE(table);  // its value descriptions are kept
}

void CAN_DEALLOCATE_SIG(sigblk* signal) {
    if (signal == nullptr) {
        return;
    }
    tavlo::model::ReleaseEntries(signal->receivers);  // their relation values are kept
    TAVLO_MFREE(signal->comment);
    TAVLO_MFREE(signal);
}

void CAN_DELETE_SIG(msgblk* msg, sigblk* signal) {
    TAVLO_ASSERT(msg != NULL, kModule);
    if (signal == nullptr) {
        return;
    }
    sigblk* signals = msg->signals;
    const bool inMessage = Unlink(signals, signal);
    TAVLO_ASSERT(inMessage, kModule);
    msg->signals = signals;
    CAN_DEALLOCATE_SIG(signal);
}

void CAN_DEALLOCATE_SIGGROUP(siggroupblk* group) {
    if (group == nullptr) {
        return;
    }
    tavlo::model::ReleaseEntries(group->signals);
    TAVLO_MFREE(group->comment);
    TAVLO_MFREE(group);
}

void CAN_DELETE_SIGGROUP(msgblk* msg, siggroupblk* group) {
    TAVLO_ASSERT(msg != NULL, kModule);
    if (group == nullptr) {
        return;
    }
    siggroupblk* groups = msg->signal_groups;
    const bool inMessage = Unlink(groups, group);
    TAVLO_ASSERT(inMessage, kModule);
    msg->signal_groups = groups;
    CAN_DEALLOCATE_SIGGROUP(group);
}

sigblk* CAN_DELETE_SIGLIST(sigblk* first) {
    tavlo::model::ReleaseEach(first, CAN_DEALLOCATE_SIG);
    return nullptr;
}

}  // extern "C"
