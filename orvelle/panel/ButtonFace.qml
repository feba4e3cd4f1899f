// The face of what can be pressed: raised a little, with a hairline around it.
import QtQuick

Item {
    id: face

    required property bool isDown
    required property bool isHovered
    required property bool isFocused

    Rectangle {
        y: 1
        width: parent.width
        height: parent.height
        radius: Theme.radius
        visible: face.enabled
        color: Theme.shadow
    }
    Rectangle {
        anchors.fill: parent
        radius: Theme.radius
        color: face.isDown ? Theme.controlPressed
             : face.isHovered ? Theme.controlHovered : Theme.control
        border.color: Theme.controlBorder
        border.width: 1
        opacity: face.enabled ? 1 : Theme.disabledOpacity
    }
    FocusRing {
        cornerRadius: Theme.radius
        visible: face.isFocused
    }
}
