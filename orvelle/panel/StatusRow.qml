// A symbol and what it says, in as many lines as that takes.
import QtQuick
import app.orvelle.panel

Item {
    id: row

    required property int shape
    required property string text
    property color symbolColor: Theme.secondary
    property color textColor: symbolColor

    height: Math.max(symbol.height, label.height)
    Accessible.role: Accessible.StaticText
    Accessible.name: text

    Symbol {
        id: symbol
        width: 14
        height: 14
        shape: row.shape
        color: row.symbolColor
    }
    Caption {
        id: label
        x: symbol.width + 4
        width: row.width - x
        text: row.text
        color: row.textColor
        font.pixelSize: Theme.caption
        wrapMode: Text.Wrap
        Accessible.ignored: true
    }
}
