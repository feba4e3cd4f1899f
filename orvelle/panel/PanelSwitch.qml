// A switch without a text. It asks for a change, and shows what has become of it: also when it is
// refused, takes a while, or assistive technology set it.
import QtQuick
import QtQuick.Templates as T

T.Switch {
    id: control

    required property string name
    /// The truth.
    required property bool isOn
    /// A change has been asked for and is under way.
    property bool isBusy: false
    signal requested(bool on)

    implicitWidth: 36
    implicitHeight: 20
    padding: 0
    hoverEnabled: true
    checked: isOn
    onCheckedChanged: {
        if (checked !== isOn) {
            requested(checked)
            checked = Qt.binding(() => isOn)
        }
    }
    Keys.forwardTo: [keys]
    Accessible.name: name
    Accessible.checkable: true
    Accessible.checked: checked

    PressKeys {
        id: keys
        onPressed: control.toggle()
    }

    indicator: Item {
        width: control.width
        height: control.height
        opacity: control.enabled ? 1 : Theme.disabledOpacity

        FocusRing {
            cornerRadius: parent.height / 2
            visible: control.visualFocus
        }
        Rectangle {
            anchors.fill: parent
            radius: height / 2
            color: control.isBusy ? Theme.faded(Theme.accent, 0.5)
                 : control.checked ? Theme.accent : Theme.track
            Behavior on color { ColorAnimation { duration: Theme.quick } }
        }
        Rectangle {
            readonly property real travel: parent.width - width - 4

            x: 2 + (control.isBusy ? travel / 2 : control.checked ? travel : 0)
            y: 2
            width: 16 + (control.down ? 3 : 0)
            height: 16
            radius: 8
            color: control.checked ? Theme.textOnAccent : Theme.white
            border.color: Theme.faded("#000000", 0.12)
            border.width: 1
            Behavior on x { NumberAnimation { duration: Theme.quick; easing.type: Easing.OutCubic } }
            Behavior on width { NumberAnimation { duration: Theme.quick } }
        }
    }
}
