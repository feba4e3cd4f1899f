// One line of a combo box's list.
import QtQuick
import QtQuick.Templates as T
import app.orvelle.panel

T.ItemDelegate {
    id: item

    required property int index
    required property var modelData
    readonly property ChoiceList list: ListView.view as ChoiceList
    readonly property color textColor: highlighted ? Theme.textOnAccent : Theme.primary

    width: list?.width ?? 0
    height: Theme.controlHeight
    leftPadding: 24
    rightPadding: 10
    text: modelData.text
    font: Desktop.fontOfSize(Theme.body)
    highlighted: ListView.isCurrentItem
    hoverEnabled: true
    Accessible.name: text
    Accessible.onPressAction: {
        if (enabled) {
            clicked()
        }
    }

    background: Rectangle {
        radius: 4
        color: item.highlighted ? Theme.accent : "transparent"

        Symbol {
            x: 7
            y: Math.round((parent.height - height) / 2)
            width: 11
            height: 11
            visible: item.index === (item.list?.chosenIndex ?? -1)
            shape: Symbol.Checkmark
            color: item.textColor
        }
    }
    contentItem: Text {
        text: item.text
        textFormat: Text.PlainText
        font: item.font
        color: item.textColor
        elide: Text.ElideRight
        verticalAlignment: Text.AlignVCenter
        Accessible.ignored: true
    }
}
