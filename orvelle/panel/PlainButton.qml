// A text that can be pressed.
import QtQuick
import QtQuick.Templates as T
import app.orvelle.panel

T.Button {
    id: control

    required property color textColor

    implicitWidth: contentItem.implicitWidth
    implicitHeight: contentItem.implicitHeight
    padding: 0
    hoverEnabled: true
    font: Desktop.fontOfSize(Theme.caption)
    Keys.forwardTo: [keys]
    Accessible.name: text
    Accessible.onPressAction: keys.press()

    PressKeys {
        id: keys
        onPressed: control.clicked()
    }

    background: Item {
        FocusRing {
            cornerRadius: 3
            gap: 2
            visible: control.visualFocus
        }
    }
    contentItem: Text {
        text: control.text
        font.family: control.font.family
        font.pointSize: control.font.pointSize
        font.underline: control.hovered
        color: control.textColor
        opacity: control.down ? 0.6 : 1
        Accessible.ignored: true
    }
}
