/* zebcore: the core services zebjp relies on (allocation, thread count, cache
 * size), plus settings that let tests and tools steer them. */
#ifndef ZEBCORE_H
#define ZEBCORE_H

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define ZEBCOREAPI __attribute__((visibility("default")))
#else
#define ZEBCOREAPI
#endif

/* Services. All are safe to call from any thread. */
ZEBCOREAPI void* zebMalloc(int len);
ZEBCOREAPI void zebFree(void* ptr);
ZEBCOREAPI int ownGetNumThreads(void);
ZEBCOREAPI int zebGetMaxCacheSizeB(int* pSize);

/* Settings. Change them between calls into zebjp, not during one. */

/* Thread count that ownGetNumThreads reports; 0 restores the machine's count. */
ZEBCOREAPI void zebcoreSetNumThreads(int n);
/* The machine's own thread count. */
ZEBCOREAPI int zebcoreGetMachineNumThreads(void);
/* What zebGetMaxCacheSizeB reports: a status and a size. zebcoreResetCacheSize
 * restores the machine's largest cache and status 0. */
ZEBCOREAPI void zebcoreSetCacheSize(int status, int size);
ZEBCOREAPI void zebcoreResetCacheSize(void);
/* Make the n-th zebMalloc from now return null (1 = the next one); 0 disables. */
ZEBCOREAPI void zebcoreFailAllocation(int n);
/* Number of zebMalloc calls that returned a block and have not been freed. */
ZEBCOREAPI int zebcoreLiveAllocations(void);

#ifdef __cplusplus
}
#endif

#endif /* ZEBCORE_H */
