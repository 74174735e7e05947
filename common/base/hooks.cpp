#include "common/base/hooks.h"

[[gnu::weak]] constinit MemoryExhaustedHook gMemoryExhausted = nullptr;
[[gnu::weak]] constinit CheckFailedHook gCheckFailed = nullptr;
[[gnu::weak]] constinit ContainerTraceHook gContainerTrace = nullptr;

void container_trace(const char *file, uint32_t line, const char *format, ...)
{
    if (gContainerTrace == nullptr)
        return;
    va_list values;
    va_start(values, format);
    gContainerTrace(file, line, format, values);
    va_end(values);
}
