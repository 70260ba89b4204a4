#include <CVQCriticalSection.h>

#include <VQSyslog.h>

CVQCriticalSection::CVQCriticalSection() {
    if (const int error = pthread_mutex_init(&mSync, nullptr); error != 0) {
        VQSyslog::logMsg(0, VQSyslog::CRITICAL, "Failed to create CVQCriticalSection: error=%d", error);
    }
}

CVQCriticalSection::~CVQCriticalSection() {
    if (const int error = pthread_mutex_destroy(&mSync); error != 0) {
        VQSyslog::logMsg(0, VQSyslog::CRITICAL, "Failed to destroy CVQCriticalSection: error=%d", error);
    }
}
