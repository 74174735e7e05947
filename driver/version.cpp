#define MODULE "driver/version"
#include "driver/version.h"

#include "common/trace/qzdebug.h"

bool version_printBanner(FILE *stream)
{
    TRACE_ENTER();
    const char *release = "";
    const int written = fprintf(stream,
                                "\nProduct:\t%s\nComponent:\t%s\nVersion:\t%d.%02d%c\n"
                                "Build date:\tFeb  1 2021\nRelease:\t%s\nBuild number:\t%s\n",
                                "QZM", "qzm-cc", PRODUCT_VERSION / 1000,
                                PRODUCT_VERSION % 1000 / 10, ' ', release, "20210201212658");
    return TRACE_RETURN("%d", written >= 0 && fflush(stream) == 0);
}
