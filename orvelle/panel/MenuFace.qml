// The ground of a list that lies over the panel, with a soft shadow.
import QtQuick

Item {
    Repeater {
        model: 6

        Rectangle {
            required property int index

            anchors.fill: parent
            anchors.margins: -1 - index
            anchors.topMargin: 2 - index
            anchors.bottomMargin: -4 - index
            radius: 9 + index
            color: Theme.softShadow
        }
    }
    Rectangle {
        anchors.fill: parent
        radius: 8
        color: Theme.menu
        border.color: Theme.border
        border.width: 1
    }
}
