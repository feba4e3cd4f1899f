// Where in a long column one is; shown while there is more than fits.
import QtQuick
import QtQuick.Templates as T

T.ScrollBar {
    id: control

    implicitWidth: 10
    padding: 2
    visible: size < 1
    minimumSize: 0.1
    Accessible.ignored: true

    contentItem: Rectangle {
        implicitWidth: 6
        radius: width / 2
        color: Theme.faded(Theme.secondary, control.pressed ? 0.8 : control.hovered ? 0.65 : 0.45)
    }
}
