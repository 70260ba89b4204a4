#include <IVQRuntimeInfo.h>

namespace {

// Never destroyed, so that objects can still be asked while exit takes the process down.
union UUndestroyedClassID {
    explicit constexpr UUndestroyedClassID(const char* name) : id(name) {}
    ~UUndestroyedClassID() {}  // a member of a union is not destroyed with it

    CVQClassID id;
};

VQ_CONSTINIT UUndestroyedClassID runtimeInfoClassID("IVQRuntimeInfo");

}  // namespace

VQ_CONSTINIT const CVQClassID& IVQRuntimeInfo::sClassID = runtimeInfoClassID.id;
