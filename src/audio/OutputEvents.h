#pragma once
// What output back ends and render sources report to the live monitor. They post from any
// thread, the real-time one included; the monitor handles the events on a thread of its own.
namespace velmora {

class OutputEvents {
public:
    enum : unsigned {
        devicesChanged = 1u,   // a device came, went or changed its channels
        streamFailed = 2u,     // the open stream broke (server gone, device error)
        oneShotFinished = 4u,  // a one-shot buffer has been played out
    };
    // [any thread] Never blocks or allocates; events posted together may be handled together.
    virtual void post(unsigned events) noexcept = 0;

protected:
    ~OutputEvents() = default;
};

}  // namespace velmora
