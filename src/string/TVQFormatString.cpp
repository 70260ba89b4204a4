#include "TVQFormatString.h"

#include <VQOperatingSystem.h>

int VQFormatStringHelper::doVsnprintf(char* buffer, int size, const char* format, std::va_list arguments) {
    return VQOperatingSystem::vsnprintf(buffer, size, format, arguments);
}
