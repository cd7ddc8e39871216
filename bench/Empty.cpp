// An empty C++ program, and, built with KV_BENCH_LOADS, one that does nothing but load the library.

#ifdef KV_BENCH_LOADS
#include "platform/errorhandling/KvCErrorList.h"
#endif

int main()
{
#ifdef KV_BENCH_LOADS
    KvNAllocation::release(nullptr);
#endif
    return 0;
}
