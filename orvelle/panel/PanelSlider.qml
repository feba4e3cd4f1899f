// A horizontal slider. It asks for a value, and shows the one there is.
import QtQuick
import QtQuick.Templates as T

T.Slider {
    id: control

    required property string name
    /// The value in words.
    property string valueText: ""
    /// The truth.
    required property real setting
    /// Of keys and wheel.
    property real step: stepSize
    property real fineStep: stepSize
    required property real pageStep
    property bool ignoresWheel: false
    signal requested(real value)

    // Where assistive technology looks for them.
    readonly property real minimumValue: from
    readonly property real maximumValue: to

    implicitHeight: 20
    padding: 0
    hoverEnabled: true
    snapMode: T.Slider.SnapAlways
    value: setting
    onValueChanged: {
        const wanted = onStep(value)
        // Assistive technology sets values also while it is disabled.
        if (enabled && wanted !== setting) {
            requested(wanted)
        }
        if (value !== setting) {
            value = Qt.binding(() => setting)
        }
    }
    Keys.forwardTo: [input]
    Accessible.name: name
    Accessible.description: valueText
    Accessible.onIncreaseAction: input.moveBy(step)
    Accessible.onDecreaseAction: input.moveBy(-step)

    /// Without the traces of a division. Steps are one over a whole number.
    function onStep(wanted: real): real {
        if (stepSize === 0) {
            return wanted
        }
        const stepsInOne = Math.round(1 / stepSize)
        return Math.round(wanted * stepsInOne) / stepsInOne
    }

    ValueInput {
        id: input
        anchors.fill: parent
        value: control.setting
        from: control.from
        to: control.to
        step: control.step
        fineStep: control.fineStep
        pageStep: control.pageStep
        ignoresWheel: control.ignoresWheel
        onRequested: value => control.requested(control.onStep(value))
    }

    background: Item {
        opacity: control.enabled ? 1 : Theme.disabledOpacity

        Rectangle {
            anchors.verticalCenter: parent.verticalCenter
            width: parent.width
            height: 4
            radius: 2
            color: Theme.track
        }
        Rectangle {
            anchors.verticalCenter: parent.verticalCenter
            width: control.handle.x + control.handle.width / 2
            height: 4
            radius: 2
            color: control.enabled ? Theme.accent : Theme.secondary
        }
    }

    handle: Item {
        x: Math.round(control.visualPosition * (control.width - width))
        y: Math.round((control.height - height) / 2)
        width: 16
        height: 16

        FocusRing {
            cornerRadius: parent.height / 2
            visible: control.visualFocus
        }
        Rectangle {
            anchors.fill: parent
            anchors.topMargin: 1
            anchors.bottomMargin: -1
            radius: width / 2
            color: Theme.shadow
        }
        Rectangle {
            anchors.fill: parent
            radius: width / 2
            color: !control.enabled ? Theme.knobDisabled
                 : control.pressed ? Theme.knobPressed : Theme.knob
            border.color: Theme.knobBorder
            border.width: 1
        }
    }
}
