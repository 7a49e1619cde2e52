// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_UI_EVENT_H
#define KESTROVA_APP_UI_EVENT_H

namespace app {

/// Signals an event from one thread to another, which can poll its descriptor.
class Event {
public:
    Event();
    ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void set() const;
    /// Clears the event. Returns whether it was set.
    bool take() const;
    /// Readable while the event is set.
    int descriptor() const { return mDescriptor; }

private:
    int mDescriptor;
};

}  // namespace app

#endif
