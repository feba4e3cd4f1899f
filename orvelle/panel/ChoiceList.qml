// The choices of a combo box, with a tick at the one that holds.
import QtQuick
import QtQuick.Templates as T

ListView {
    required property int chosenIndex

    clip: true
    highlightMoveDuration: 0
    boundsBehavior: Flickable.StopAtBounds
    T.ScrollBar.vertical: PanelScrollBar {}
}
