// A check box with its text. It asks for a change, and shows what has become of it.
import QtQuick
import QtQuick.Templates as T
import app.orvelle.panel

T.CheckBox {
    id: control

    /// The truth.
    required property bool isOn
    signal requested(bool on)

    implicitWidth: indicator.width + spacing + contentItem.implicitWidth
    implicitHeight: Math.max(indicator.height, contentItem.implicitHeight)
    padding: 0
    spacing: 6
    hoverEnabled: true
    font: Desktop.fontOfSize(Theme.subheadline)
    checked: isOn
    onCheckedChanged: {
        if (checked !== isOn) {
            requested(checked)
            checked = Qt.binding(() => isOn)
        }
    }
    Keys.forwardTo: [keys]
    Accessible.name: text
    Accessible.checkable: true
    Accessible.checked: checked

    PressKeys {
        id: keys
        onPressed: control.toggle()
    }

    indicator: Item {
        y: Math.round((control.height - height) / 2)
        width: 15
        height: 15

        FocusRing {
            cornerRadius: 4
            visible: control.visualFocus
        }
        Rectangle {
            anchors.fill: parent
            radius: 4
            color: control.checked ? Theme.accent : control.down ? Theme.controlPressed : Theme.control
            border.color: control.checked ? Theme.accent : Theme.controlBorder
            border.width: 1
        }
        Symbol {
            anchors.fill: parent
            anchors.margins: 2
            visible: control.checked
            shape: Symbol.Checkmark
            color: Theme.textOnAccent
        }
    }

    contentItem: Text {
        leftPadding: control.indicator.width + control.spacing
        text: control.text
        font: control.font
        color: Theme.primary
        verticalAlignment: Text.AlignVCenter
        Accessible.ignored: true
    }
}
