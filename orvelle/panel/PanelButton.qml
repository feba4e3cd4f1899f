// A push button.
import QtQuick
import QtQuick.Templates as T
import app.orvelle.panel

T.Button {
    id: control

    property int textSize: Theme.body

    implicitWidth: contentItem.implicitWidth + leftPadding + rightPadding
    implicitHeight: Theme.controlHeight
    horizontalPadding: 12
    verticalPadding: 0
    hoverEnabled: true
    font: Desktop.fontOfSize(textSize)
    Keys.forwardTo: [keys]
    Accessible.name: text
    Accessible.onPressAction: keys.press()

    PressKeys {
        id: keys
        onPressed: control.clicked()
    }

    background: ButtonFace {
        isDown: control.down
        isHovered: control.hovered
        isFocused: control.visualFocus
    }
    contentItem: Text {
        text: control.text
        font: control.font
        color: Theme.primary
        opacity: control.enabled ? 1 : Theme.disabledOpacity
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        Accessible.ignored: true
    }
}
