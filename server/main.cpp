// The command line: tabwarden [-p port]

#include "common/text.h"
#include "server/listener.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

constexpr char binary_name[] = "tabwarden";

[[noreturn]] void usage()
{
    fprintf(stderr, "\nusage : %s [-p \"port\"]\n", binary_name);
    fprintf(stderr, "  -p  Specify port for http server to listen on.\n\n");
    fprintf(stderr, "  example : %s -p %s\n\n", binary_name, default_port);
    exit(-1);
}

}

int main(int argc, char **argv)
{
    char port[255] = "";
    copy_text(port, default_port);
    for (int option; (option = getopt(argc, argv, ":?:p:")) != -1;) {
        if (option != 'p' || !copy_text(port, optarg))
            usage();
    }
    // 0 also after a failed start: it has been told on standard error and in the log.
    http_start(port);
    return 0;
}
