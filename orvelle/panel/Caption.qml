// The name of a row's control.
import QtQuick

Text {
    font.pixelSize: Theme.subheadline
    color: Theme.secondary
    Accessible.role: Accessible.StaticText
    Accessible.name: text
    textFormat: Text.PlainText
}
