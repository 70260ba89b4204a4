// The parsers that one would pick instead of CVQConfigFileParser. inih calls back with section, key and value; GLib
// keeps all of them, to be asked for later.
#include "Bench.h"
#include "CVQConfigFileParser_workload.h"

#if BENCH_INIH
#include <ini.h>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif

namespace {

// The bytes of the file as they arrive: nothing can parse them sooner.
MARLIX_BENCH("CVQConfigFileParser_Parse", "floor: read the file", 100000) {
    const bench::ConfigFile file(std::size_t(state.range(0)));
    static char buffer[65536];
    for (auto _ : state) {
        std::FILE* const stream = std::fopen(file.path(), "r");
        std::setvbuf(stream, nullptr, _IONBF, 0);
        while (std::fread(buffer, 1, sizeof buffer, stream) == sizeof buffer) {
        }
        std::fclose(stream);
        benchmark::DoNotOptimize(buffer);
    }
}

#if BENCH_INIH
struct Settings {
    std::size_t count = 0;
    std::size_t valueBytes = 0;
};

MARLIX_BENCH("CVQConfigFileParser_Parse", "inih", 100000) {
    const bench::ConfigFile file(std::size_t(state.range(0)));
    const auto add = [](void* user, const char*, const char* name, const char* value) {
        Settings* const settings = static_cast<Settings*>(user);
        settings->count += *name != '\0' ? 1 : 0;
        settings->valueBytes += std::strlen(value);
        return 1;
    };
    Settings settings;
    bench::check(ini_parse(file.path(), add, &settings) == 0, "a file that can be read");
    file.expect(settings.count, settings.valueBytes);
    for (auto _ : state)
        benchmark::DoNotOptimize(ini_parse(file.path(), add, &settings));
}
#endif

#if BENCH_GLIB
MARLIX_BENCH("CVQConfigFileParser_Parse", "GLib key file", 100000) {
    const bench::ConfigFile file(std::size_t(state.range(0)));
    const auto load = [&file] {
        GKeyFile* const keys = g_key_file_new();
        bench::check(g_key_file_load_from_file(keys, file.path(), G_KEY_FILE_NONE, nullptr) != 0,
                     "a readable file");
        return keys;
    };
    GKeyFile* const keys = load();
    std::size_t count = 0;
    std::size_t valueBytes = 0;
    for (std::size_t i = 0; i < file.sections(); ++i) {
        const std::string section = file.nameOf(i);
        gchar** const names = g_key_file_get_keys(keys, section.c_str(), nullptr, nullptr);
        for (gchar** name = names; *name != nullptr; ++name) {
            gchar* const value = g_key_file_get_value(keys, section.c_str(), *name, nullptr);
            ++count;
            valueBytes += std::strlen(value);
            g_free(value);
        }
        g_strfreev(names);
    }
    g_key_file_free(keys);
    file.expect(count, valueBytes);
    for (auto _ : state)
        g_key_file_free(load());
}
#endif

}  // namespace
