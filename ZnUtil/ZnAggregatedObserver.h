// An observer that lives inside its owner and hands notifications to it.
#ifndef ZNUTIL_ZNAGGREGATEDOBSERVER_H
#define ZNUTIL_ZNAGGREGATEDOBSERVER_H

#include "ZnUtil/ZnObserver.h"

#include <atomic>

/// One source's link into a ZnMultiSourceObserver: it passes every notification to its owner
/// unchanged. Its count is the owner's: AddRef and Release go to the owner, so a handle on an
/// aggregated observer keeps the owner alive. Ownership: the owner deletes it, or, for one made
/// by a ZnMultiSourceObserver, lets go of it, and it goes when the last handle on it does; so a
/// notification passing through it survives its source being removed meanwhile.
class ZnAggregatedObserver : public ZnObserver
{
public:
    /// \p aOwner is not counted by this object.
    explicit ZnAggregatedObserver(ZnObserver* aOwner);
    /// Detaches from its source first.
    ~ZnAggregatedObserver() override;

    /// Both go to the owner; they must come in pairs on this object, as a handle's do.
    unsigned long AddRef() override;
    unsigned long Release(bool deleteAtZero = true) override;

    /// Calls the owner's onNotification with both arguments unchanged.
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override;

    ZnObserver* getOwner() const { return m_pOwner; }

private:
    friend class ZnMultiSourceObserver;

    /// The owner lets go: detaches from the source now, and deletes this object once no handle
    /// holds it any more. For objects made with new by their owner.
    void retire();

    ZnObserver* m_pOwner;
    /// The owner's hold plus one per handle. Not the object's count, which stays 0: the owner's
    /// count decides the owner's life, this one only when the memory of a retired object is freed.
    std::atomic<long> m_pins;
    /// Set by retire(); until then this object is never deleted through its pins.
    std::atomic<bool> m_retired;
};

#endif // ZNUTIL_ZNAGGREGATEDOBSERVER_H
