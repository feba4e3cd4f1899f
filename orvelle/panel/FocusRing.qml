// Marks the control that the keyboard moves, around the outline of its parent.
import QtQuick

Rectangle {
    /// Of the parent's corners.
    required property real cornerRadius
    property real gap: 1

    z: -1
    anchors.fill: parent
    anchors.margins: -gap - border.width
    radius: cornerRadius + gap + border.width
    color: "transparent"
    border.color: Theme.accent
    border.width: 2
}
