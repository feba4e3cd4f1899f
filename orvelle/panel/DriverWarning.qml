// Other drivers that work on all sound beside this program.
import QtQuick

Column {
    id: warning

    /// Their names.
    required property var drivers
    required property string audioSystemName

    spacing: 10

    Divider {}
    Column {
        width: parent.width
        spacing: 3

        Caption {
            width: parent.width
            text: "Other audio drivers detected and may increase " + warning.audioSystemName + " CPU."
            wrapMode: Text.Wrap
        }
        Caption {
            width: parent.width
            text: "Also installed: " + warning.drivers.join(", ") + "."
            color: Theme.warning
            font.pixelSize: Theme.caption2
            wrapMode: Text.Wrap
        }
    }
}
