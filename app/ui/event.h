// SPDX-License-Identifier: MIT
#ifndef KESTROVA_APP_UI_EVENT_H
#define KESTROVA_APP_UI_EVENT_H

namespace app {

/// Something that one thread tells another one, which can wait for it beside other descriptors.
class Event {
public:
    Event();
    ~Event();
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void set() const;
    /// Takes it back; true when it was set.
    bool take() const;
    /// Readable when set.
    int descriptor() const { return mDescriptor; }

private:
    int mDescriptor;
};

}  // namespace app

#endif
