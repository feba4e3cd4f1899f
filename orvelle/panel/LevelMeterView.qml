// The output's level as a row of lights.
import QtQuick
import app.orvelle.panel

SegmentBar {
    id: meter

    /// Linear, 1 is full scale.
    required property real level
    required property bool isActive
    required property int segments

    property real shownLevel: level
    Behavior on shownLevel { NumberAnimation { duration: Theme.meterStep } }

    implicitHeight: 6
    colors: Array.from({ length: segments }, (_, segment) => segmentColor(segment))
    Accessible.role: Accessible.ProgressBar
    Accessible.name: "Level"
    // In words: Qt has numbers only for what can be set.
    Accessible.description: Math.round(100 * (isActive ? Math.min(level, 1) : 0)) + " %"

    function segmentColor(segment: int): color {
        // In the precision of the level.
        const place = Math.fround(segment / segments)
        if (!isActive || place >= shownLevel) {
            return Theme.meterUnlit
        }
        return place > Math.fround(0.85) ? Theme.meterRed
             : place > Math.fround(0.65) ? Theme.meterYellow : Theme.meterGreen
    }
}
