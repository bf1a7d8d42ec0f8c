#include "server/log.h"

#include "common/product_config.h"
#include "common/text.h"

#include <cstdarg>
#include <unistd.h>

FILE *lfp;

namespace {

bool find_log_path(std::span<char> path)
{
    char directory[512];
    Registry *registry = open_registry();
    set_config(registry, TABWARDEN_CONFIG_FILE);
    int length = get_profile_string(registry, nullptr, "Settings", "LogDir", "/tmp/", directory, sizeof directory);
    close_registry(registry);
    return length >= 0 && format_text(path, "%s/kelvohttp.log", directory);
}

}

void start_logging()
{
    char path[512];
    if (!find_log_path(path)) {
        fputs("Log path is too long, logging stays off\n", stderr);
        return;
    }
    if (access(path, F_OK) != 0)
        return;
    lfp = fopen(path, "w+");
    if (!lfp)
        return;
    setlinebuf(lfp);
    log_printf("Logging started\n");
}

void log_printf(const char *format, ...)
{
    if (!lfp)
        return;
    va_list arguments;
    va_start(arguments, format);
    vfprintf(lfp, format, arguments);
    va_end(arguments);
}
