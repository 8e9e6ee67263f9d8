// manager/owner.cpp: counts of a manager's objects and the database that
// owns an object. Both walk the iterators; nothing is cached, so callers that
// ask often keep the result.
#include "manager/lists.h"
#include "platform/platform.h"
#include "tavloms/manager.h"

namespace {

constexpr const char* kModule = "dbmsread";

// The number of elements an iterator yields from where it stands.
template <class Iterator>
unsigned int Count(Iterator it) {
    unsigned int count = 0;
    for (; !it.AtEnd(); ++it) {
        ++count;
    }
    return count;
}

}  // namespace

// ---- Counts -----------------------------------------------------------------

unsigned int TavloManager::DatabaseCount() const {
    return Count(GetDatabaseNameIterator());
}

unsigned int TavloManager::NodeCount(const char* dbName) const {
    return Count(GetNodeIterator(dbName));
}

unsigned int TavloManager::MessageCount(const char* dbName) const {
    return Count(GetMessageIterator(dbName));
}

unsigned int TavloManager::EnvvarCount(const char* dbName) const {
    return Count(GetEnvvarIterator(dbName));
}

unsigned int TavloManager::BitTimingCount(const char* dbName) const {
    return Count(GetBitTimingIterator(dbName));
}

unsigned int TavloManager::AttrDefinitionCount(const char* dbName) const {
    return Count(GetAttrDefIterator(dbName));
}

unsigned int TavloManager::CategoryCount(const char* dbName) const {
    return Count(GetCategoryIterator(dbName));
}

unsigned int TavloManager::SignalTypeCount(const char* dbName) const {
    return Count(GetSignalTypeIterator(dbName));
}

unsigned int TavloManager::ValueTableCount(const char* dbName) const {
    return Count(GetValueTableIterator(dbName));
}

unsigned int TavloManager::AttributeCount(const char* dbName) const {
    return Count(GetAttributeIterator(dbName));
}

// The per-object counts need no owning database: no predicate is told it.
unsigned int TavloManager::SignalCount(const msgblk& message) const {
    return Count(GetSignalIterator(message, nullptr));
}

unsigned int TavloManager::SignalGroupCount(const msgblk& message) const {
    return Count(GetSignalGroupIterator(message, nullptr));
}

unsigned int TavloManager::SignalCount(const siggroupblk& group) const {
    return Count(GetSubsignalIterator(group, nullptr));
}

unsigned int TavloManager::AttributeCount(const symblk& node) const {
    return Count(GetAttributeIterator(node, nullptr));
}

unsigned int TavloManager::AttributeCount(const msgblk& message) const {
    return Count(GetAttributeIterator(message, nullptr));
}

unsigned int TavloManager::AttributeCount(const env_var_blk& envvar) const {
    return Count(GetAttributeIterator(envvar, nullptr));
}

unsigned int TavloManager::AttributeCount(const sigblk& signal) const {
    return Count(GetAttributeIterator(signal, nullptr));
}

// ---- Owning databases -----------------------------------------------------------

const char* TavloManager::GetDatabaseName(const symblk& node) const {
    return tavlo::manager::HolderOf(GetNodeIterator(nullptr), &node);
}

const char* TavloManager::GetDatabaseName(const msgblk& message) const {
    return tavlo::manager::HolderOf(GetMessageIterator(nullptr), &message);
}

const char* TavloManager::GetDatabaseName(const env_var_blk& envvar) const {
    return tavlo::manager::HolderOf(GetEnvvarIterator(nullptr), &envvar);
}

const char* TavloManager::GetDatabaseName(const attr_def& definition) const {
    return tavlo::manager::HolderOf(GetAttrDefIterator(nullptr), &definition);
}

const char* TavloManager::GetDatabaseName(const sigtype& type) const {
    return tavlo::manager::HolderOf(GetSignalTypeIterator(nullptr), &type);
}

const char* TavloManager::GetDatabaseName(const valtable& table) const {
    return tavlo::manager::HolderOf(GetValueTableIterator(nullptr), &table);
}

const char* TavloManager::GetDatabaseName(const sigblk& signal) const {
    for (auto messages = GetMessageIterator(nullptr); !messages.AtEnd(); ++messages) {
        if (tavlo::manager::Holds<sigblk>((*messages)->signals, &signal)) {
            return messages.GetDatabaseName();
        }
    }
    return nullptr;
}

const char* TavloManager::GetDatabaseName(const siggroupblk& group) const {
    const msgblk* message = group.message;
    return message != nullptr ? GetDatabaseName(*message) : nullptr;
}

const char* TavloManager::GetDatabaseName(const rxblk& relation,
                                          const tavlo_obj_t& relationType) const {
    switch (relationType) {
        case TAVLO_OBJ_NODE_SIGNAL:  // receivers of the signals of messages
            for (auto messages = GetMessageIterator(nullptr); !messages.AtEnd(); ++messages) {
                for (const sigblk* s = (*messages)->signals; s != nullptr; s = s->next) {
                    if (tavlo::manager::Holds<rxblk>(s->receivers, &relation)) {
                        return messages.GetDatabaseName();
                    }
                }
            }
            return nullptr;
        case TAVLO_OBJ_NODE_MESSAGE:  // further transmitters of messages
            for (auto messages = GetMessageIterator(nullptr); !messages.AtEnd(); ++messages) {
                if (tavlo::manager::Holds<rxblk>((*messages)->transmitters, &relation)) {
                    return messages.GetDatabaseName();
                }
            }
            return nullptr;
        case TAVLO_OBJ_NODE_ENVVAR:  // access nodes of environment variables
            for (auto envvars = GetEnvvarIterator(nullptr); !envvars.AtEnd(); ++envvars) {
                if (tavlo::manager::Holds<rxblk>((*envvars)->access_nodes, &relation)) {
                    return envvars.GetDatabaseName();
                }
            }
            return nullptr;
        default:
            TAVLO_ASSERT(0, kModule);
            return nullptr;
    }
}
