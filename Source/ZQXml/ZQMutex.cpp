// Interlocked counters on std::atomic: sequentially consistent, so a count
// that reaches zero is seen as zero by exactly one thread.
#include "ZQXml/ZQMutex.h"

long ZQMutex::interlockedIncrement(std::atomic<long>& value) { return value.fetch_add(1) + 1; }

long ZQMutex::interlockedDecrement(std::atomic<long>& value) { return value.fetch_sub(1) - 1; }
