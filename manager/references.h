// manager/references.h: what the write manager does before it deletes a
// record. Every reference that the records of the record's database hold to
// it is taken away as the matching Remove... operation would take it
// (receivers, transmitters, access nodes, filter entries, group members,
// attribute values of a definition, category, signal type and value table
// references), and what the record owns beyond what the flat deletion
// releases goes with it. After that the flat deletion leaves nothing
// dangling and nothing out of reach. Not part of the public interface.
#ifndef TAVLOMS_MANAGER_REFERENCES_H
#define TAVLOMS_MANAGER_REFERENCES_H

#include "tavloms/manager.h"

namespace tavlo::manager {

void Unreference(TavloDatabase& db, symblk& node);
void Unreference(TavloDatabase& db, msgblk& message);
void Unreference(TavloDatabase& db, env_var_blk& envvar);
void Unreference(TavloDatabase& db, btlblk& timing);
void Unreference(TavloDatabase& db, cat& category);
void Unreference(TavloDatabase& db, sigtype& type);
void Unreference(TavloDatabase& db, valtable& table);
void Unreference(TavloDatabase& db, attr_def& def);

// A signal of message, whose database may be unknown (null): then only the
// message's own groups are searched for members naming it.
void Unreference(TavloDatabase* db, msgblk& message, sigblk& signal);

// A signal group about to be deleted: its second member list, which the
// group's deletion keeps.
void Unreference(siggroupblk& group);

}  // namespace tavlo::manager

#endif  // TAVLOMS_MANAGER_REFERENCES_H
