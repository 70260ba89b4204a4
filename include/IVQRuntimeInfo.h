// IVQRuntimeInfo: an object that can be asked for itself as another of its classes, without the compiler's run-time
// type information.
//
//   Use      a class that takes part derives from IVQRuntimeInfo, directly or through its bases, owns an identifier
//            and answers for it, deferring to its bases for theirs:
//
//                class CDisplay : public IVQRuntimeInfo {
//                public:
//                    static const CVQClassID sClassID;
//                    void* doCastToPtr(const CVQClassID& id) override {
//                        return &id == &sClassID ? this : castToPtr(id);
//                    }
//                };
//                const CVQClassID CDisplay::sClassID("CDisplay");      // in its unit
//
//            A class with several bases asks them in turn; the first that answers wins. The caller knows which
//            class it named and casts to exactly that one:
//
//                static_cast<CDisplay*>(object.doCastToPtr(CDisplay::sClassID))
//
//            examples/runtimeinfo is a whole hierarchy.
//   Shape    no data; virtual operations in slot order: destructor, doCastToPtr.
//   Errors   none: null for a class that the object is not.
//   Threads  any thread, as far as the object itself allows it.
#pragma once

#include <CVQClassID.h>
#include <VQExport.h>

class VQ_EXPORT IVQRuntimeInfo {
public:
    /// The identifier of this interface, named "IVQRuntimeInfo". It is never destroyed.
    static const CVQClassID& sClassID;

    virtual ~IVQRuntimeInfo() = default;

    /// This object as the class that `id` identifies, or null.
    virtual void* doCastToPtr(const CVQClassID& id) = 0;

    /// The end of every chain of doCastToPtr: this object as IVQRuntimeInfo for that very identifier, else null.
    void* castToPtr(const CVQClassID& id) { return &id == &sClassID ? this : nullptr; }

protected:
    IVQRuntimeInfo() = default;
    IVQRuntimeInfo(const IVQRuntimeInfo&) = default;
    IVQRuntimeInfo& operator=(const IVQRuntimeInfo&) = default;
};
