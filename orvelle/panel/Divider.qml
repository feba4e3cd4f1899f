// A hairline across the column.
import QtQuick
import app.orvelle.panel

Item {
    width: parent?.width ?? 0
    height: 1

    Hairline {
        width: parent.width
        height: 2
        color: Theme.divider
    }
}
