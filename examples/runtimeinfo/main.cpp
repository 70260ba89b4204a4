// A small hierarchy whose objects tell what they are without the compiler's run-time type information: a service that
// is built with -fno-rtti holds devices of several makes, and asks each for the interfaces it knows.
#include <IVQRuntimeInfo.h>

#include <cstdio>

namespace {

/// What some devices are: each interface has its identifier and answers for it.
class ITuner : public IVQRuntimeInfo {
public:
    static const CVQClassID sClassID;
    void* doCastToPtr(const CVQClassID& id) override { return &id == &sClassID ? this : castToPtr(id); }

    virtual unsigned getKilohertz() const = 0;
};

class IVolume : public IVQRuntimeInfo {
public:
    static const CVQClassID sClassID;
    void* doCastToPtr(const CVQClassID& id) override { return &id == &sClassID ? this : castToPtr(id); }

    virtual unsigned getPercent() const = 0;
};

/// A device that is both: it answers for itself first, then asks its bases in turn.
class CRadio : public ITuner, public IVolume {
public:
    static const CVQClassID sClassID;
    void* doCastToPtr(const CVQClassID& id) override {
        if (&id == &sClassID) {
            return this;
        }
        void* const tuner = ITuner::doCastToPtr(id);
        return tuner != nullptr ? tuner : IVolume::doCastToPtr(id);
    }

    unsigned getKilohertz() const override { return 98'500; }
    unsigned getPercent() const override { return 40; }
};

/// A device with one base only has nothing to add to its answer but itself.
class CAmplifier : public IVolume {
public:
    static const CVQClassID sClassID;
    void* doCastToPtr(const CVQClassID& id) override { return &id == &sClassID ? this : IVolume::doCastToPtr(id); }

    unsigned getPercent() const override { return 75; }
};

const CVQClassID ITuner::sClassID("ITuner");
const CVQClassID IVolume::sClassID("IVolume");
const CVQClassID CRadio::sClassID("CRadio");
const CVQClassID CAmplifier::sClassID("CAmplifier");

/// The pointer that comes back is to exactly the class that was named, so that this one cast is right.
template <class Class>
Class* castTo(IVQRuntimeInfo& object) {
    return static_cast<Class*>(object.doCastToPtr(Class::sClassID));
}

void describe(const char* name, IVQRuntimeInfo& device) {
    std::printf("%s:", name);
    if (const ITuner* tuner = castTo<ITuner>(device)) {
        std::printf(" tuned to %u kHz", tuner->getKilohertz());
    }
    if (const IVolume* volume = castTo<IVolume>(device)) {
        std::printf(" at %u %%", volume->getPercent());
    }
    std::printf("%s\n", castTo<CRadio>(device) != nullptr ? " (a radio)" : "");
}

}  // namespace

int main() {
    CRadio radio;
    CAmplifier amplifier;
    // The radio is handed over through its second base: the answers are the same.
    describe("kitchen", static_cast<IVolume&>(radio));
    describe("hall", amplifier);
    return 0;
}
