// SPDX-License-Identifier: Apache-2.0
// The tables of the folder that QUARL_FRAMES names.
#pragma once

#include "frames/loaded_object.h"
#include "frames/table.h"
#include "platform/address.h"

namespace quarl {

// Called once, before the others. False when no folder is named.
bool settle_table_folder();

// The table of a loaded object, mapped read-only when it is first asked for and never unmapped, so that who walks has
// nothing to fear. Null: there is none, or it is damaged, which is told on standard error. System calls, no allocation
// of the program's; one thread at a time.
const FrameTable* table_of(const LoadedObject& object);

// Where tables lie, all of them between two addresses.
AddressRange tables_span();
bool table_lies_in(const FrameTable& table, const AddressRange& range);

// The memory is taken away: who asks for these tables later gets them mapped anew.
void forget_tables_in(const AddressRange& range);

}  // namespace quarl
