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

// The position, from 0, of `name` among the members of `item`. Gives 0 also when it is none of them: callers use the
// result as a bit number and have always had bit 0 for that.
int bitno_of_mask(const char *name, const FormItemSpec *item);
