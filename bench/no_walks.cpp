#include "bench/walks.h"

void walk_data_sources()
{
}
