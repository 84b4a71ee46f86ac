// The main job, for now: shows the foundation of the library at work.
#include "foundation/UTL_String.h"
#include "foundation/TObjectMap.h"
#include "foundation/SystemTime.h"

#include <cstdio>

int main()
{
    zr::SystemTime now;
    UTL_String stamp = now;
    std::printf("zmu foundation demo at %ls\n", stamp.wideText());

    UTL_String name(L"operator_pw_log.html");
    std::printf("'%ls' matches '*_pw_*.html': %s\n", name.wideText(), name.matches("*_pw_*.html") ? "yes" : "no");

    TObjectMap<unsigned long, void*> map(0);
    for (unsigned long key = 0; key < 40; ++key)
        map.add(key, nullptr);
    std::printf("40 entries in a map built for 0 buckets: %lu buckets\n", static_cast<unsigned long>(map.bucketCount()));
    return 0;
}
