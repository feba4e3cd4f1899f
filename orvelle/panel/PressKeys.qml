// Return and Enter for what Space presses, and all of them once: a key that is held down repeats
// itself, and Qt presses anew each time. Forward a control's keys to it.
import QtQuick

Item {
    signal pressed

    /// For assistive technology, which does not mind what is disabled.
    function press() {
        if (enabled) {
            pressed()
        }
    }
    function isReturn(key: int): bool {
        return key === Qt.Key_Return || key === Qt.Key_Enter
    }

    Keys.onPressed: event => {
        if (isReturn(event.key) && !event.isAutoRepeat) {
            press()
        }
        event.accepted = isReturn(event.key) || event.key === Qt.Key_Space && event.isAutoRepeat
    }
    Keys.onReleased: event => {
        event.accepted = isReturn(event.key) || event.key === Qt.Key_Space && event.isAutoRepeat
    }
}
