#include "server/form_item.h"

#include <cstdlib>
#include <cstring>

namespace {

// -1 when it is no member, or when there is no memory to look.
int member_position(const FormItemSpec *item, const char *name)
{
    char *members = item->members ? strdup(item->members) : nullptr;
    if (!members)
        return -1;
    int position = 0, found = -1;
    char *rest;
    for (char *member = strtok_r(members, " ", &rest); member; member = strtok_r(nullptr, " ", &rest), position++) {
        if (strcmp(member, name) != 0)
            continue;
        found = position;
        break;
    }
    free(members);
    return found;
}

}

const FormItemSpec *find_ff_item_from_name(const FormItemSpec *items, const char *name)
{
    for (; items->name; items++) {
        if (strcmp(items->name, name) == 0)
            return items;
        if ((items->flags & form_item_is_group) && member_position(items, name) >= 0)
            return items;
    }
    return nullptr;
}

int bitno_of_mask(const char *name, const FormItemSpec *item)
{
    int position = member_position(item, name);
    return position < 0 ? 0 : position;
}
