// orbc and orbc18 of the sample installation: the ORB compilers, as far as anybody but qzm asks
// them. They answer "--chipinforaw" with their devices, one line each. ORBC_18 is 1 in orbc18.
#include "sample/orb_chips.h"

#include <cstdio>
#include <cstring>

int main(int argc, char **argv)
{
    if (argc == 2 && strcmp(argv[1], "--chipinforaw") == 0)
        return orbchip_list(ORBC_18) ? 0 : 1;
    fprintf(stderr, "usage: %s --chipinforaw\n", argc > 0 ? argv[0] : "orbc");
    return 1;
}
