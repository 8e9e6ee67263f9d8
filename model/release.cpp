// model/release.cpp: releasing a whole database (TAVLO_FREE) and the
// full-depth list releases it is made of, which the copies share to undo a
// copy that ran out of memory.
//
// Beyond the listed order, TAVLO_FREE also releases the entries of each
// message's transmitter list and the relation values at receiver,
// transmitter and access node entries, which nothing else could reach once
// the database is gone.
#include "model/model.h"

namespace tavlo::model {

void ReleaseAttrs(attr* list) {
    ReleaseEach(list, [](attr* value) {
        if (HoldsText(value->def)) {
            TAVLO_MFREE(value->value.text);
        }
        TAVLO_MFREE(value);
    });
}

void ReleaseValueDescriptions(val* list) {
    ReleaseEntries(list);
}

void ReleaseRelations(rxblk* list) {
    ReleaseEach(list, [](rxblk* entry) {
        ReleaseAttrs(entry->attributes);
        TAVLO_MFREE(entry);
    });
}

void ReleaseAttrDefs(attr_def* list) {
    ReleaseEach(list, [](attr_def* def) {
        if (def->value_type == TAVLO_ATTR_ENUM) {
            TAVLO_MFREE(def->minimum.text);
        }
        if (def->value_type == TAVLO_ATTR_ENUM || def->value_type == TAVLO_ATTR_STRING) {
            TAVLO_MFREE(def->default_value.text);
        }
        TAVLO_MFREE(def);
    });
}

void ReleaseCategories(cat* list) {
    ReleaseEntries(list);
}

void ReleaseFilterCategories(filtercatblk* list) {
    ReleaseEntries(list);
}

void ReleaseFilterNodes(rxblk* list) {
    ReleaseEntries(list);
}

void ReleaseValueTables(valtable* list) {
    ReleaseEach(list, [](valtable* table) {
        ReleaseValueDescriptions(table->value_descriptions);
        TAVLO_MFREE(table);
    });
}

void ReleaseSigTypes(sigtype* list) {
    ReleaseEach(list, [](sigtype* type) {
        TAVLO_MFREE(type->comment);
        ReleaseAttrs(type->attributes);
        TAVLO_MFREE(type);
    });
}

void ReleaseNodes(symblk* list) {
    ReleaseEach(list, [](symblk* node) {
        TAVLO_MFREE(node->comment);
        ReleaseAttrs(node->attributes);
        TAVLO_MFREE(node);
    });
}

void ReleaseSignals(sigblk* list) {
    ReleaseEach(list, [](sigblk* signal) {
        ReleaseRelations(signal->receivers);
        ReleaseValueDescriptions(signal->value_descriptions);
        TAVLO_MFREE(signal->comment);
        ReleaseAttrs(signal->attributes);
        TAVLO_MFREE(signal);
    });
}

void ReleaseMessages(msgblk* list) {
    ReleaseEach(list, [](msgblk* message) {
        ReleaseEach(message->signal_groups, [](siggroupblk* group) {
            ReleaseEntries(group->signals);
            ReleaseEntries(group->second_list);
            TAVLO_MFREE(group->comment);
            TAVLO_MFREE(group);
        });
        ReleaseSignals(message->signals);
        TAVLO_MFREE(message->comment);
        ReleaseAttrs(message->attributes);
        ReleaseRelations(message->transmitters);
        TAVLO_MFREE(message);
    });
}

void ReleaseEnvvars(env_var_blk* list) {
    ReleaseEach(list, [](env_var_blk* envvar) {
        TAVLO_MFREE(envvar->comment);
        ReleaseAttrs(envvar->attributes);
        ReleaseRelations(envvar->access_nodes);
        ReleaseValueDescriptions(envvar->value_descriptions);
        TAVLO_MFREE(envvar);
    });
}

void ReleaseBitTimings(btlblk* list) {
    ReleaseEntries(list);
}

}  // namespace tavlo::model

extern "C" {

void TAVLO_FREE(symblk* nodes, msgblk* messages, env_var_blk* envvars, btlblk* bitTimings,
                attr_def* attrDefs, attr* dbAttrs, cat* categories, filter_t filter,
                char* comment, char* version, sigtype* sigTypes, valtable* valueTables) {
    using namespace tavlo::model;
    TAVLO_FREE_MODE_CACHE();
    TAVLO_MFREE(comment);
    TAVLO_MFREE(version);
    ReleaseAttrs(dbAttrs);
    ReleaseBitTimings(bitTimings);
    ReleaseEnvvars(envvars);
    ReleaseValueTables(valueTables);
    ReleaseMessages(messages);
    ReleaseNodes(nodes);
    // Signal types go last, after the definitions; their attribute values
    // need their definitions to tell text values, so they go now.
    for (sigtype* type = sigTypes; type != nullptr; type = type->next) {
        ReleaseAttrs(type->attributes);
        type->attributes = nullptr;
    }
    ReleaseAttrDefs(attrDefs);
    ReleaseCategories(categories);
    ReleaseFilterNodes(filter.nodes);
    ReleaseFilterCategories(filter.categories);
    ReleaseSigTypes(sigTypes);
}

void TAVLO_FREE_ROOT(tavlo_root_t* root) {
    if (root == nullptr) {
        return;
    }
    TAVLO_FREE(root->nodes, root->messages, root->envvars, root->bit_timings, root->attr_defs,
               root->db_attrs, root->categories, root->filter, root->comment, root->version,
               root->sig_types, root->value_tables);
    *root = tavlo_root_t{};
}

}  // extern "C"
