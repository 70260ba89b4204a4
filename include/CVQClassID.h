// CVQClassID: the identity of a class, for IVQRuntimeInfo.
//
//   Shape    one pointer: the class's name, a constant text that is not owned.
//   Identity is the object's address. Two identifiers with one name are two classes; the name only informs. So an
//            identifier is a static object of its class and is never copied.
//   Errors   none. The name may be null.
//   Threads  any thread. An identifier is built at compile time, and so is there before any constructor runs. One
//            that was destroyed during exit still has its address, and its name is null.
#pragma once

#include <VQExport.h>

class VQ_EXPORT CVQClassID {
public:
    explicit constexpr CVQClassID(const char* name) : mName(name) {}
    CVQClassID(const CVQClassID&) = delete;
    CVQClassID& operator=(const CVQClassID&) = delete;
    ~CVQClassID();

    const char* getName() const { return mName; }

private:
    const char* mName;
};
