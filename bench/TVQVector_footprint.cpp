// The memory of our containers. Names are of 19 bytes and more, a block of text each.
#include "Footprint.h"
#include "Keys.h"

#include <CVQString.h>
#include <TVQHashArray.h>
#include <TVQHashMap.h>
#include <TVQList.h>
#include <TVQMap.h>
#include <TVQQueue.h>
#include <TVQVector.h>

#include <cstdio>

int main(int /*count*/, char** arguments) {
    footprint::begin(arguments);
    const auto name = [](int number) {
        char text[32];
        std::snprintf(text, sizeof text, "channel/%011d", number);
        return CVQString(text);
    };
    footprint::printHead();
    footprint::printLine<TVQVector<int>>("int: TVQVector", [](auto& array, int i) { array.push_back(i); });
    footprint::printLine<TVQQueue<int>>("int: TVQQueue", [](auto& queue, int i) { queue.push(i); });
    footprint::printLine<TVQVector<CVQString>>("text: TVQVector",
                                               [&](auto& array, int i) { array.push_back(name(i)); });
    footprint::printLine<TVQMap<CVQString, int>>("text to int: TVQMap",
                                                 [&](auto& map, int i) { map.insert(name(i), i); });
    footprint::printLine<TVQHashArray<CVQString, int>>("text to int: TVQHashArray",
                                                       [&](auto& table, int i) { table.insert(name(i), i); });
    footprint::printLine<TVQHashMap<void*>>("key to pointer: TVQHashMap", [](auto& map, int i) {
        map[bench::mixed(static_cast<unsigned>(i) + 1)] = &map;
    });
    footprint::printLine<TVQList<int>>("int: TVQList", [](auto& list, int i) { list.push_back(i); });
}
