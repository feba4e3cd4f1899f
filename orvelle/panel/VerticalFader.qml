// A vertical fader: the whole frame takes the pointer, and the value follows it at once. It asks for
// a value, and shows the one there is.
import QtQuick
import app.orvelle.panel

Item {
    id: fader

    required property string name
    /// The truth, in dB.
    required property real setting
    required property real from
    required property real to
    property bool ignoresWheel: false
    signal requested(real value)

    // Where assistive technology looks for them, and what it may set.
    property real value: setting
    readonly property real minimumValue: from
    readonly property real maximumValue: to
    readonly property real stepSize: input.step

    /// As controls have it.
    property int focusReason: Qt.OtherFocusReason

    implicitWidth: 22
    activeFocusOnTab: true
    onValueChanged: {
        if (value !== setting) {
            requested(Math.min(Math.max(value, from), to))
            value = Qt.binding(() => setting)
        }
    }
    onFocusChanged: {
        if (!focus) {
            focusReason = Qt.OtherFocusReason
        }
    }
    Keys.forwardTo: [input]
    Accessible.role: Accessible.Slider
    Accessible.name: name
    Accessible.description: (setting > 0 ? "+" : "") + setting.toFixed(1) + " dB"
    Accessible.focusable: true
    Accessible.onIncreaseAction: input.moveBy(input.step)
    Accessible.onDecreaseAction: input.moveBy(-input.step)

    /// The value at a height in the frame.
    function valueAt(y: real): real {
        const at = from + (1 - y / height) * (to - from)
        return isNaN(at) ? from : Math.min(Math.max(at, from), to)
    }

    ValueInput {
        id: input
        anchors.fill: parent
        value: fader.setting
        from: fader.from
        to: fader.to
        step: 1
        fineStep: 0.1
        pageStep: 3
        ignoresWheel: fader.ignoresWheel
        onRequested: value => fader.requested(value)
    }
    MouseArea {
        anchors.fill: parent
        preventStealing: true
        onPressed: event => {
            fader.focusReason = Qt.MouseFocusReason
            fader.forceActiveFocus(Qt.MouseFocusReason)
            fader.requested(fader.valueAt(event.y))
        }
        onPositionChanged: event => fader.requested(fader.valueAt(event.y))
    }

    FaderFace {
        id: face
        anchors.fill: parent
        position: (fader.setting - fader.from) / (fader.to - fader.from)
        pixelRatio: fader.Screen.devicePixelRatio
        quiet: Theme.secondary
        accent: Theme.accent

        Item {
            x: face.knob.x - width / 2
            y: face.knob.y - height / 2
            width: 11
            height: 11

            FocusRing {
                cornerRadius: parent.height / 2
                visible: fader.activeFocus && fader.focusReason !== Qt.MouseFocusReason
            }
        }
    }
}
