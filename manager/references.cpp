// manager/references.cpp: taking every reference to a record out of its
// database before the record is deleted, and releasing what the record owns
// beyond what its flat deletion releases. Records are packed: list heads and
// counts are read into locals, changed and written back.
#include "manager/references.h"

#include "manager/removal.h"
#include "model/model.h"

namespace tavlo::manager {
namespace {

using tavlo::model::ReleaseAttrs;
using tavlo::model::ReleaseRelations;

// One entry, unlinked already, with everything it owns.
void ReleaseValue(attr* value) {
    value->next = nullptr;
    ReleaseAttrs(value);
}

void ReleaseRelation(rxblk* entry) {
    entry->next = nullptr;
    ReleaseRelations(entry);
}

template <class Entry>
void ReleaseEntry(Entry* entry) {
    TAVLO_MFREE(entry);
}

// The entries of a node relation list that name node go, with their
// relation values; count (when given) is lowered by one for each.
rxblk* DropRelations(rxblk* head, const symblk* node, unsigned short* count = nullptr) {
    return DropEvery(
        head, [node](const rxblk& entry) { return entry.symbol == node; },
        [count](rxblk* entry) {
            ReleaseRelation(entry);
            if (count != nullptr) {
                --*count;
            }
        });
}

attr* DropValuesOf(attr* head, const attr_def* def) {
    return DropEvery(head, [def](const attr& value) { return value.def == def; }, ReleaseValue);
}

siglistblk* DropMembers(siglistblk* head, const sigblk* signal) {
    return DropEvery(
        head, [signal](const siglistblk& member) { return member.signal == signal; },
        ReleaseEntry<siglistblk>);
}

template <class Visit>
void EachMessage(TavloDatabase& db, Visit visit) {
    for (msgblk* message = db.mMessages; message != nullptr; message = message->next) {
        visit(*message);
    }
}

template <class Visit>
void EachSignal(msgblk& message, Visit visit) {
    for (sigblk* signal = message.signals; signal != nullptr; signal = signal->next) {
        visit(*signal);
    }
}

template <class T, class Visit>
void EachRecord(T* head, Visit visit) {
    for (T* record = head; record != nullptr; record = record->next) {
        visit(*record);
    }
}

// Group members naming signal, in the groups of every message of db (or of
// message alone when db is unknown).
void DropMemberships(TavloDatabase* db, msgblk& message, const sigblk& signal) {
    const auto fromGroups = [&signal](msgblk& holder) {
        EachRecord(holder.signal_groups, [&signal](siggroupblk& group) {
            group.signals = DropMembers(group.signals, &signal);
        });
    };
    if (db != nullptr) {
        EachMessage(*db, fromGroups);
    } else {
        fromGroups(message);
    }
}

// What a signal owns that its flat deletion keeps: attribute values, value
// descriptions and its receivers' relation values.
void ReleaseKept(sigblk& signal) {
    ReleaseAttrs(signal.attributes);
    signal.attributes = nullptr;
    tavlo::model::ReleaseValueDescriptions(signal.value_descriptions);
    signal.value_descriptions = nullptr;
    ReleaseRelations(signal.receivers);
    signal.receivers = nullptr;
    signal.receiver_count = 0;
}

}  // namespace

void Unreference(TavloDatabase& db, symblk& node) {
    EachMessage(db, [&node](msgblk& message) {
        if (message.transmitter == &node) {
            message.transmitter = nullptr;
        }
        message.transmitters = DropRelations(message.transmitters, &node);
        EachSignal(message, [&node](sigblk& signal) {
            unsigned short count = signal.receiver_count;
            signal.receivers = DropRelations(signal.receivers, &node, &count);
            signal.receiver_count = count;
        });
    });
    EachRecord(db.mEnvvars, [&node](env_var_blk& envvar) {
        if (envvar.node == &node) {
            envvar.node = nullptr;
        }
        unsigned short count = envvar.access_node_count;
        envvar.access_nodes = DropRelations(envvar.access_nodes, &node, &count);
        envvar.access_node_count = count;
    });
    db.mFilter.nodes = DropEvery(
        db.mFilter.nodes, [&node](const rxblk& entry) { return entry.symbol == &node; },
        ReleaseEntry<rxblk>);
    ReleaseAttrs(node.attributes);
    node.attributes = nullptr;
}

void Unreference(TavloDatabase& db, msgblk& message) {
    EachSignal(message, [&db, &message](sigblk& signal) {
        DropMemberships(&db, message, signal);
        ReleaseKept(signal);
    });
    // The groups go whole: their members named the message's own signals.
    EachRecord(message.signal_groups, [](siggroupblk& group) {
        Unreference(group);
    });
    tavlo::model::ReleaseEach(message.signal_groups,
                              CAN_DEALLOCATE_SIGGROUP);
    message.signal_groups = nullptr;
    ReleaseAttrs(message.attributes);
    message.attributes = nullptr;
    ReleaseRelations(message.transmitters);
    message.transmitters = nullptr;
}

void Unreference(TavloDatabase* db, msgblk& message, sigblk& signal) {
    DropMemberships(db, message, signal);
    ReleaseKept(signal);
}

void Unreference(siggroupblk& group) {
    tavlo::model::ReleaseEntries(group.second_list);
    group.second_list = nullptr;
}

void Unreference(TavloDatabase&, env_var_blk& envvar) {
    ReleaseAttrs(envvar.attributes);
    envvar.attributes = nullptr;
    ReleaseRelations(envvar.access_nodes);
    envvar.access_nodes = nullptr;
    envvar.access_node_count = 0;
    tavlo::model::ReleaseValueDescriptions(envvar.value_descriptions);
    envvar.value_descriptions = nullptr;
}

void Unreference(TavloDatabase&, btlblk&) {}  // nothing refers to a bit timing

void Unreference(TavloDatabase& db, cat& category) {
    const auto clear = [&category](auto& record) {
        if (record.category == &category) {
            record.category = nullptr;
        }
    };
    EachRecord(db.mNodes, clear);
    EachRecord(db.mMessages, clear);
    EachRecord(db.mEnvvars, clear);
    db.mFilter.categories = DropEvery(
        db.mFilter.categories,
        [&category](const filtercatblk& entry) { return entry.act == &category; },
        ReleaseEntry<filtercatblk>);
}

void Unreference(TavloDatabase& db, sigtype& type) {
    EachMessage(db, [&type](msgblk& message) {
        EachSignal(message, [&type](sigblk& signal) {
            if (signal.sig_type == &type) {
                signal.sig_type = nullptr;
            }
        });
    });
    TAVLO_MFREE(type.comment);
    type.comment = nullptr;
    ReleaseAttrs(type.attributes);
    type.attributes = nullptr;
}

void Unreference(TavloDatabase& db, valtable& table) {
    EachRecord(db.mSigTypes, [&table](sigtype& type) {
        if (type.value_list == &table) {
            type.value_list = nullptr;
        }
    });
    tavlo::model::ReleaseValueDescriptions(table.value_descriptions);
    table.value_descriptions = nullptr;
}

void Unreference(TavloDatabase& db, attr_def& def) {
    const auto fromRelations = [&def](rxblk* head) {
        EachRecord(head, [&def](rxblk& entry) {
            entry.attributes = DropValuesOf(entry.attributes, &def);
        });
    };
    const auto fromOwn = [&def](auto& record) {
        record.attributes = DropValuesOf(record.attributes, &def);
    };
    db.mDbAttrs = DropValuesOf(db.mDbAttrs, &def);
    EachRecord(db.mNodes, fromOwn);
    EachMessage(db, [&](msgblk& message) {
        fromOwn(message);
        fromRelations(message.transmitters);
        EachSignal(message, [&](sigblk& signal) {
            fromOwn(signal);
            fromRelations(signal.receivers);
        });
    });
    EachRecord(db.mEnvvars, [&](env_var_blk& envvar) {
        fromOwn(envvar);
        fromRelations(envvar.access_nodes);
    });
    EachRecord(db.mSigTypes, fromOwn);
    // The flat deletion keeps an enumeration's default text.
    if (def.value_type == TAVLO_ATTR_ENUM) {
        tavlo_attr_value_t none{};
        TAVLO_MFREE(def.default_value.text);
        def.default_value = none;
    }
}

}  // namespace tavlo::manager
