#include "common/product_config.h"

#include "common/text.h"

#include <cstdlib>
#include <cstring>
#include <odbcinst.h>
#include <unistd.h>

namespace {

// Longer than any value that the profile reader gives, so that a value of the caller's size is seen whole.
constexpr int longest_value = 4096;

}

struct Registry {
    const char *file;
    ProfileReader read;
};

namespace {

// The installer library would make a file that is missing.
int read_existing_file(const char *section, const char *key, const char *default_value, char *buffer, int size,
                       const char *file)
{
    if (access(file, R_OK) != 0)
        return -1;
    return SQLGetPrivateProfileString(section, key, default_value, buffer, size, file);
}

}

Registry *open_registry()
{
    auto registry = static_cast<Registry *>(calloc(1, sizeof(Registry)));
    set_ini_function(registry, read_existing_file);
    return registry;
}

void set_config(Registry *registry, const char *file)
{
    if (registry)
        registry->file = file;
}

int get_profile_string(Registry *registry, const void *, const char *section, const char *key,
                       const char *default_value, char *buffer, int size)
{
    char value[longest_value] = "";
    if (!registry || !registry->file ||
        registry->read(section, key, default_value, value, longest_value, registry->file) < 0)
        copy_text(value, default_value);
    if (!copy_text({buffer, size_t(size)}, value))
        return -1;
    return int(strlen(buffer));
}

void set_ini_function(Registry *registry, ProfileReader reader)
{
    if (registry)
        registry->read = reader;
}

void close_registry(Registry *registry)
{
    free(registry);
}
