// A caption, and a switch of that name at the other end.
import QtQuick

Item {
    id: row

    required property string text
    required property bool isOn
    signal requested(bool on)

    height: toggle.height

    Caption {
        anchors.verticalCenter: parent.verticalCenter
        text: row.text
        Accessible.ignored: true
    }
    PanelSwitch {
        id: toggle
        anchors.right: parent.right
        name: row.text
        isOn: row.isOn
        onRequested: on => row.requested(on)
    }
}
