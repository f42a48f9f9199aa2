// Chains of heap holders: each pins one value until the chain is freed.
// The caller keeps the head pointer.
#pragma once

#include "abi/plugin_abi.h"
#include "hostvalues/rbdata.h"

namespace qvt {

// Null, with a log line, when the holder can't be made.
rbData *NewBlockData(REALobject block, RBInteger offset, RBInteger size);
rbData *NewStringData(REALstring string);

// The holder goes in front of the chain.
void AddDataChain(rbData **head, rbData *holder);
// Releases and deletes every holder from `head` on; the caller's head
// pointer is left as it was.
void FreeDataChain(rbData *head);

// The first holder pinning that value, or null.
rbData *FindDataChainObject(rbData *head, REALobject object);
rbData *FindDataChainString(rbData *head, REALstring string);

}  // namespace qvt
