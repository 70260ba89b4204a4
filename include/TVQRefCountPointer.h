// TVQRefCountPointer: a pointer that holds one reference of what it points to.
//   Shape    one pointer. `T` has addReference() and removeReference(), such as CVQThreadSafeRefCounter.
//   Threads  a pointer: one thread at a time. Pointers to the same object: any threads.
#pragma once

template <class T>
class TVQRefCountPointer {
public:
    constexpr TVQRefCountPointer() noexcept = default;
    /// Adds a reference to `object`, which may be null.
    TVQRefCountPointer(T* object) : mObject(object) { add(); }
    TVQRefCountPointer(const TVQRefCountPointer& other) : mObject(other.mObject) { add(); }
    TVQRefCountPointer(TVQRefCountPointer&& other) noexcept : mObject(other.mObject) { other.mObject = nullptr; }
    ~TVQRefCountPointer() { remove(mObject); }

    TVQRefCountPointer& operator=(const TVQRefCountPointer& other) {
        if (this != &other)
            *this = other.mObject;
        return *this;
    }
    TVQRefCountPointer& operator=(TVQRefCountPointer&& other) noexcept {
        if (this != &other) {
            T* const old = mObject;
            mObject = other.mObject;
            other.mObject = nullptr;
            remove(old);
        }
        return *this;
    }
    /// The reference to another object is removed before this one's is added, so that of an object that owns the
    /// other nothing may be left when it is needed: keep a pointer to it elsewhere.
    TVQRefCountPointer& operator=(T* object) {
        if (mObject != object) {
            T* const old = mObject;
            mObject = nullptr;  // who asks this pointer while the old object goes finds none
            remove(old);
            mObject = object;
            add();
        }
        return *this;
    }

    T* get() const { return mObject; }
    T* operator->() const { return mObject; }
    T& operator*() const { return *mObject; }
    bool isNull() const { return mObject == nullptr; }
    explicit operator bool() const { return mObject != nullptr; }

    bool operator==(const TVQRefCountPointer& other) const { return mObject == other.mObject; }
    bool operator!=(const TVQRefCountPointer& other) const { return mObject != other.mObject; }

private:
    void add() const {
        if (mObject != nullptr) {
            mObject->addReference();
        }
    }
    static void remove(T* object) {
        if (object != nullptr) {
            object->removeReference();
        }
    }

    T* mObject = nullptr;
};
