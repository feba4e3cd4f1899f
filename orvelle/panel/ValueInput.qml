// Keys and wheel for everything that has a value between two ends: an arrow or a notch moves it by
// a step, Control or Shift makes that a fine one, the page keys take large steps, Home and End go to
// the ends. Forward a control's keys to it.
import QtQuick

Item {
    id: input

    required property real value
    required property real from
    required property real to
    required property real step
    required property real fineStep
    required property real pageStep
    /// Whether the wheel is at work elsewhere.
    property bool ignoresWheel: false
    signal requested(real value)

    function request(wanted: real) {
        requested(Math.min(Math.max(wanted, from), to))
    }
    /// For assistive technology, which does not mind what is disabled.
    function moveBy(difference: real) {
        if (enabled) {
            request(value + difference)
        }
    }
    function stepFor(modifiers: int): real {
        return modifiers & (Qt.ControlModifier | Qt.ShiftModifier) ? fineStep : step
    }

    Keys.onPressed: event => {
        const by = stepFor(event.modifiers)
        switch (event.key) {
        case Qt.Key_Up:
        case Qt.Key_Right: request(value + by); break
        case Qt.Key_Down:
        case Qt.Key_Left: request(value - by); break
        case Qt.Key_PageUp: request(value + pageStep); break
        case Qt.Key_PageDown: request(value - pageStep); break
        case Qt.Key_Home: request(from); break
        case Qt.Key_End: request(to); break
        default: return
        }
        event.accepted = true
    }

    WheelHandler {
        id: wheel
        /// Of fine wheels, which turn by parts of a notch.
        property real notches: 0

        acceptedDevices: PointerDevice.Mouse | PointerDevice.TouchPad
        enabled: input.enabled && !input.ignoresWheel
        onWheel: event => {
            const turned = event.angleDelta.y * (event.inverted ? -1 : 1) / 120
            notches = turned * notches < 0 ? turned : notches + turned
            const whole = Math.trunc(notches)
            if (whole !== 0) {
                notches -= whole
                input.request(input.value + whole * input.stepFor(event.modifiers))
            }
        }
    }
}
