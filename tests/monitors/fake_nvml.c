/* A stand-in for libnvidia-ml with two GPUs, for the NVML loading path of the GPU reader. */
#include <stdint.h>
#include <stdio.h>

typedef struct { unsigned gpu; unsigned memory; } Utilization;
typedef struct { unsigned long long total, free, used; } MemoryInfo;
typedef struct {
    char busIdLegacy[16];
    unsigned domain, bus, device, pciDeviceId, pciSubSystemId;
    char busId[32];
} PciInfo;

static int initialised;

int nvmlInit_v2(void) { initialised = 1; return 0; }
int nvmlShutdown(void) { initialised = 0; return 0; }
int nvmlDeviceGetCount_v2(unsigned* count) { *count = 2; return initialised ? 0 : 1; }
int nvmlDeviceGetHandleByIndex_v2(unsigned index, void** handle)
{
    *handle = (void*)(uintptr_t)(index + 1);
    return 0;
}
int nvmlDeviceGetName(void* handle, char* name, unsigned length)
{
    snprintf(name, length, "%s", (uintptr_t)handle == 1 ? "NVIDIA GeForce RTX 3080" : "NVIDIA A100");
    return 0;
}
int nvmlDeviceGetUtilizationRates(void* handle, Utilization* u)
{
    u->gpu = (uintptr_t)handle == 1 ? 55 : 100;
    u->memory = 0;
    return 0;
}
int nvmlDeviceGetMemoryInfo(void* handle, MemoryInfo* m)
{
    m->total = 10ull << 30;
    m->used = (uintptr_t)handle == 1 ? 3ull << 30 : 0;
    m->free = m->total - m->used;
    return 0;
}
int nvmlDeviceGetPciInfo_v3(void* handle, PciInfo* p)
{
    p->domain = 0;
    p->bus = (uintptr_t)handle == 1 ? 1 : 0x41;
    p->device = 0;
    snprintf(p->busId, sizeof p->busId, "00000000:%02X:00.0", p->bus);
    return 0;
}
