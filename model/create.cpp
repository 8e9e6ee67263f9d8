// model/create.cpp: creation of records with their defaults.
//
// Creation runs mostly inside a read, so running out of memory goes to the
// handlers the reader installs (SetCreationFailure): the records the grammar
// makes for every line (messages, signals, nodes, relations, variables, bit
// timings) call inRead, the others always.
#include "model/model.h"

namespace {

using tavlo::model::Allocate;

tavlo::model::CreationFailure gFailure{};

template <class T>
T* CreateInRead() {
    T* record = Allocate<T>();
    if (record == nullptr && gFailure.inRead != nullptr) {
        gFailure.inRead();
    }
    return record;
}

template <class T>
T* CreateReported() {
    T* record = Allocate<T>();
    if (record == nullptr && gFailure.always != nullptr) {
        gFailure.always();
    }
    return record;
}

}  // namespace

void tavlo::model::SetCreationFailure(const CreationFailure& handlers) {
    gFailure = handlers;
}

extern "C" {

msgblk* TAVLO_CREATE_MSGBLK(void) {
    msgblk* message = CreateInRead<msgblk>();
    if (message != nullptr) {
        message->dlc = 1;
        message->signal_count = 1;
    }
    return message;
}

sigblk* TAVLO_CREATE_SIGBLK(void) {
    sigblk* signal = CreateInRead<sigblk>();
    if (signal != nullptr) {
        signal->length = 1;
        signal->factor = 1.0;
    }
    return signal;
}

btlblk* TAVLO_CREATE_BTLBLK(void) {
    return CreateInRead<btlblk>();
}

symblk* TAVLO_CREATE_SYMBOL(void) {
    return CreateInRead<symblk>();
}

rxblk* TAVLO_CREATE_RX(symblk* node) {
    rxblk* entry = CreateInRead<rxblk>();
    if (entry != nullptr) {
        entry->symbol = node;
    }
    return entry;
}

rxblk* TAVLO_CREATE_TX(symblk* node) {
    return TAVLO_CREATE_RX(node);
}

env_var_blk* TAVLO_CREATE_EVBLK(void) {
    return CreateInRead<env_var_blk>();  // type 0 (integer) by the zero fill
}

attr_def* TAVLO_CREATE_ATTR_DEF(void) {
    return CreateReported<attr_def>();
}

cat* TAVLO_CREATE_CATEGORY(void) {
    return CreateReported<cat>();
}

valtable* TAVLO_CREATE_VALTABLE(void) {
    return CreateReported<valtable>();
}

sigtype* TAVLO_CREATE_SIGTYPE(void) {
    return CreateReported<sigtype>();
}

siggroupblk* TAVLO_CREATE_SIGGROUP(msgblk* message) {
    siggroupblk* group = CreateReported<siggroupblk>();
    group->repetitions = 1;
    group->message = message;
    return group;
}

siglistblk* TAVLO_CREATE_SIGLIST(sigblk* signal) {
    siglistblk* member = CreateReported<siglistblk>();
    member->signal = signal;
    return member;
}

}  // extern "C"
