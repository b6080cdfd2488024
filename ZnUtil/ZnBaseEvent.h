// The root of every event that travels through an event queue.
#ifndef ZNUTIL_ZNBASEEVENT_H
#define ZNUTIL_ZNBASEEVENT_H

/// An event: no data of its own, only a virtual destructor. Events are owned by whoever holds the
/// pointer; a queue's addItem takes ownership, and the taker of getItem owns what it gets.
class ZnBaseEvent
{
public:
    ZnBaseEvent() = default;
    ZnBaseEvent(const ZnBaseEvent&) = default;
    ZnBaseEvent& operator=(const ZnBaseEvent&) = default;
    virtual ~ZnBaseEvent();
};

#endif // ZNUTIL_ZNBASEEVENT_H
