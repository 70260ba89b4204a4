// The containers that services use most: growing, sorted, by key, by hash. A wrong index is reported, not obeyed.
#include <CVQString.h>
#include <TVQHashArray.h>
#include <TVQMap.h>
#include <TVQQueue.h>
#include <TVQSortedVector.h>
#include <TVQVector.h>
#include <cstdio>

int main() {
    TVQVector<CVQString> names;
    names.push_back("voltage");
    names.push_back("current");
    names.insert(1, CVQString("frequency"));

    TVQSortedVector<CVQString> sorted;
    TVQHashArray<CVQString, int> places;
    for (const CVQString& name : names) {
        sorted.insert(name);
        places.insert(name, names.find(name));
    }
    for (const CVQString& name : sorted) {
        std::printf("%s was at %d\n", name.c_str(), *places.find(name));
    }

    TVQMap<int, CVQString> byPriority;
    byPriority.insert(10, "normal");
    byPriority.insert(63, "highest");
    std::printf("10 is new: %s\n", byPriority.insert(10, "again") ? "yes" : "no");
    for (const auto& [priority, name] : byPriority) {
        std::printf("%d: %s\n", priority, name.c_str());
    }

    TVQQueue<int> queue;
    queue.push(1);
    queue.push(2);
    queue.pop();
    std::printf("next: %d, index 9: %s\n", *queue.front(), names.get(9) == nullptr ? "nothing" : "something");
}
