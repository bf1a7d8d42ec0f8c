// Descriptors of form items: an item stands for one field or for a group of fields. They belong to the server's
// interface for applications; the administration pages do without them.

#pragma once

#include <cstdint>

constexpr uint32_t form_item_is_group = 16;

struct FormItemSpec {
    const char *name;       // null ends an array of descriptors
    uint32_t flags;
    uintptr_t unused[2];    // not read here
    const char *members;    // a group's member names, separated by single blanks
};

// The first descriptor whose name is `name`, or which is a group with that member; null when none is.
// Names are compared case-sensitively.
const FormItemSpec *find_ff_item_from_name(const FormItemSpec *items, const char *name);

// The position, from 0, of `name` among the members of `item`, case-sensitively. On purpose it gives 0 also when `name`
// is none of them: the result is a bit number, and there is none for "nothing".
int bitno_of_mask(const char *name, const FormItemSpec *item);
