// TVQOptional: room for an object that is built later than its owner, or never.
//   Shape    one byte, 0 or 1, saying whether the object exists, then `Size` bytes of storage aligned to
//            `Alignment`.
//   Errors   none.
//   Threads  one thread at a time; the object in it keeps its own rules.
//
//   TVQOptional<CVQCriticalSection, 8u, 4u> lock;
//   lock.reset(VQPrivate::TVQInplaceFactory_0());
//   if (lock) { ... lock.get()->lock(); ... }
#pragma once

#include <new>

namespace VQPrivate {

/// Builds a `T` with its default constructor where it is told to.
class TVQInplaceFactory_0 {
public:
    /// A null `storage` builds nothing.
    template <class T>
    void apply(void* storage) const {
        if (storage != nullptr) {
            ::new (storage) T();
        }
    }
};

}  // namespace VQPrivate

template <class T, unsigned Size = sizeof(T), unsigned Alignment = alignof(T)>
class TVQOptional {
    static_assert(sizeof(T) <= Size && Alignment % alignof(T) == 0, "the storage has to fit its object");

    struct SVQHidden {
        void is_initialized() {}
    };
    using SafeBool = void (SVQHidden::*)();

public:
    TVQOptional() = default;
    ~TVQOptional() { destroy(); }
    TVQOptional(const TVQOptional&) = delete;
    TVQOptional& operator=(const TVQOptional&) = delete;

    /// Builds the object by `factory`. Only for an empty optional: an object that is there is not destroyed.
    template <class F>
    void construct(const F& factory) {
        factory.template apply<T>(mStorage);
        mInitialised = 1;
    }

    /// Destroys the object, if there is one.
    void destroy() {
        if (mInitialised != 0) {
            get()->~T();
            mInitialised = 0;
        }
    }

    /// Destroys the object, if there is one, and builds a new one by `factory`.
    template <class F>
    void reset(const F& factory) {
        destroy();
        construct(factory);
    }

    /// The object, or null when there is none.
    T* get() { return mInitialised != 0 ? std::launder(static_cast<T*>(static_cast<void*>(mStorage))) : nullptr; }
    const T* get() const {
        return mInitialised != 0 ? std::launder(static_cast<const T*>(static_cast<const void*>(mStorage)))
                                 : nullptr;
    }

    /// Usable as a condition and for nothing else: a member pointer takes part in no arithmetic.
    operator SafeBool() const { return mInitialised != 0 ? &SVQHidden::is_initialized : nullptr; }

private:
    unsigned char mInitialised = 0;
    alignas(Alignment) unsigned char mStorage[Size];
};
