// Chooses one of several texts, in a list that opens inside the window. It asks for a choice by its
// tag, and shows the one there is.
import QtQuick
import QtQuick.Templates as T
import app.orvelle.panel

T.ComboBox {
    id: control

    required property string name
    /// Objects with a `text` and a `tag`.
    required property var choices
    /// The tag of the truth. Of two choices with the same tag it is the first; none for an unknown.
    required property string choice
    signal requested(string tag)

    implicitHeight: Theme.controlHeight
    leftPadding: 10
    rightPadding: 26
    font: Desktop.fontOfSize(Theme.body)
    hoverEnabled: true
    model: choices
    textRole: "text"
    valueRole: "tag"
    currentIndex: placeOf(choice)
    onModelChanged: showTruth()
    onActivated: {
        requested(currentValue)
        showTruth()
    }
    Accessible.role: Accessible.ComboBox
    Accessible.name: name
    Accessible.description: displayText
    Accessible.onPressAction: {
        if (enabled) {
            popup.open()
        }
    }

    function placeOf(tag: string): int {
        return choices.findIndex(candidate => candidate.tag === tag)
    }
    function showTruth() {
        currentIndex = Qt.binding(() => placeOf(choice))
    }

    background: ButtonFace {
        isDown: control.down
        isHovered: control.hovered
        isFocused: control.visualFocus
    }
    indicator: Symbol {
        x: control.width - width - 8
        y: Math.round((control.height - height) / 2)
        width: 12
        height: 12
        shape: Symbol.ChevronUpDown
        color: Theme.secondary
        opacity: control.enabled ? 1 : Theme.disabledOpacity
    }
    contentItem: Text {
        text: control.displayText
        textFormat: Text.PlainText
        font: control.font
        color: Theme.primary
        opacity: control.enabled ? 1 : Theme.disabledOpacity
        elide: Text.ElideRight
        verticalAlignment: Text.AlignVCenter
        Accessible.ignored: true
    }

    delegate: Choice {}
    popup: T.Popup {
        readonly property real room: control.Window.height - topMargin - bottomMargin

        enabled: control.enabled
        y: control.height + 3
        width: control.width
        height: Math.min(contentItem.implicitHeight + topPadding + bottomPadding, room)
        padding: 5
        margins: 8
        topMargin: 8
        bottomMargin: 8

        background: MenuFace {}
        contentItem: ChoiceList {
            implicitHeight: contentHeight
            model: control.delegateModel
            currentIndex: control.highlightedIndex
            chosenIndex: control.currentIndex
            Accessible.role: Accessible.List
            Accessible.name: control.name
        }
    }
}
