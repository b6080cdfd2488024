// An observer that lives inside its owner and hands notifications to it.
#ifndef ZNUTIL_ZNAGGREGATEDOBSERVER_H
#define ZNUTIL_ZNAGGREGATEDOBSERVER_H

#include "ZnUtil/ZnObserver.h"

/// One source's link into a ZnMultiSourceObserver: it passes every notification to its owner
/// unchanged. Its count is the owner's: AddRef and Release go to the owner, so a handle on an
/// aggregated observer keeps the owner alive. Ownership: the owner deletes it.
class ZnAggregatedObserver : public ZnObserver
{
public:
    /// \p aOwner is not counted by this object.
    explicit ZnAggregatedObserver(ZnObserver* aOwner);
    /// Detaches from its source first.
    ~ZnAggregatedObserver() override;

    unsigned long AddRef() override;
    unsigned long Release(bool deleteAtZero = true) override;

    /// Calls the owner's onNotification with both arguments unchanged.
    void onNotification(ZnHandle<ZnObservable> aSource, ZnHandle<ZnObject> aArgument) override;

    ZnObserver* getOwner() const { return m_pOwner; }

private:
    friend class ZnMultiSourceObserver;

    ZnObserver* m_pOwner;
};

#endif // ZNUTIL_ZNAGGREGATEDOBSERVER_H
