// One line to type into.
import QtQuick
import QtQuick.Templates as T
import app.orvelle.panel

T.TextField {
    id: control

    implicitHeight: Theme.controlHeight
    leftPadding: 7
    rightPadding: 7
    verticalAlignment: TextInput.AlignVCenter
    font: Desktop.fontOfSize(Theme.caption)
    color: Theme.primary
    placeholderTextColor: Theme.secondary
    selectionColor: Theme.accent
    selectedTextColor: Theme.textOnAccent
    selectByMouse: true
    Accessible.name: placeholderText

    background: Rectangle {
        radius: Theme.radius
        color: Theme.field
        border.color: control.activeFocus ? Theme.accent : Theme.controlBorder
        border.width: control.activeFocus ? 2 : 1

        Text {
            x: control.leftPadding
            width: parent.width - 2 * x
            height: parent.height
            visible: control.length === 0 && control.preeditText.length === 0
            text: control.placeholderText
            font: control.font
            color: control.placeholderTextColor
            elide: Text.ElideRight
            verticalAlignment: Text.AlignVCenter
            Accessible.ignored: true
        }
    }
}
