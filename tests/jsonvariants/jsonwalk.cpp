// Reads the text that it is given as an argument, and says so before and after.
#include "records/devicerecords.h"
#include "json/json.h"

#include <cstdio>

int main(int argc, char **argv)
{
    if (argc != 2)
        return 2;
    std::puts("reading");
    std::fflush(stdout);
    Velmar::ProtoModel::Auxiliary::s_UpgradePercent percent;
    std::string error;
    ajson::decodeJson(std::string(argv[1]), percent, error);
    std::puts("returned");
    return 0;
}
