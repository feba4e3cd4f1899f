// Everything the tray icon opens: one column that shows and drives the controller.
import QtQuick
import QtQuick.Templates as T
import app.orvelle.panel

FocusScope {
    id: panel

    required property AudioController controller
    required property string version
    /// Where the user wants things not to move.
    property bool reducedMotion: false
    /// Of a window that has no frame of its own: rounds the panel, in device-independent pixels.
    property real cornerRadius: 0
    signal quitRequested
    signal closeRequested

    readonly property bool shownOn: controller.isOn || controller.boostArmed

    width: 300
    height: 620
    focus: true
    Keys.onEscapePressed: closeRequested()

    /// Brings a row's control into sight.
    function reveal(item: Item) {
        if (!isInColumn(item)) {
            return
        }
        const top = item.mapToItem(column, 0, 0).y + column.y
        const margin = column.x
        if (top - margin < scroll.contentY) {
            scroll.contentY = Math.max(0, top - margin)
        } else if (top + item.height + margin > scroll.contentY + scroll.height) {
            scroll.contentY = Math.min(top + item.height + margin, scroll.contentHeight) - scroll.height
        }
    }
    function isInColumn(item: Item): bool {
        return item !== null && (item === column || isInColumn(item.parent))
    }
    readonly property var focused: Window.activeFocusItem
    onFocusedChanged: {
        // Not what was pressed: it would move away under the finger.
        const reasons = [Qt.TabFocusReason, Qt.BacktabFocusReason, Qt.OtherFocusReason]
        if (reasons.includes(focused?.focusReason)) {
            reveal(focused)
        }
    }

    Binding {
        target: Theme
        property: "reducedMotion"
        value: panel.reducedMotion
    }
    Shortcut {
        sequences: ["Ctrl+Q"]
        onActivated: panel.quitRequested()
    }

    Rectangle {
        anchors.fill: parent
        radius: panel.cornerRadius
        color: Theme.background
        border.color: Theme.border
        border.width: panel.cornerRadius > 0 ? 1 : 0
    }

    Flickable {
        id: scroll
        anchors.fill: parent
        anchors.topMargin: panel.cornerRadius > 0 ? 1 : 0
        anchors.bottomMargin: anchors.topMargin
        contentWidth: width
        contentHeight: column.height + 2 * column.y
        boundsBehavior: Flickable.StopAtBounds
        clip: true
        T.ScrollBar.vertical: PanelScrollBar {}

        Column {
            id: column
            x: 14
            y: 14
            width: parent.width - 2 * x
            spacing: 10

            Item {
                width: parent.width
                height: 22

                Row {
                    anchors.verticalCenter: parent.verticalCenter
                    spacing: 6

                    Text {
                        id: title
                        text: "Orvelle"
                        font.pixelSize: Theme.headline
                        font.weight: Font.DemiBold
                        color: Theme.primary
                    }
                    Caption {
                        anchors.baseline: title.baseline
                        text: "v" + panel.version
                        font.pixelSize: Theme.caption2
                    }
                }
                PanelSwitch {
                    anchors.right: parent.right
                    anchors.verticalCenter: parent.verticalCenter
                    name: "Orvelle"
                    isOn: panel.shownOn
                    isBusy: panel.controller.startInProgress
                    onRequested: panel.controller.toggle()
                }
            }
            Divider {}
            Caption {
                text: "Volume Boost"
                Accessible.ignored: true
            }
            PanelSlider {
                width: parent.width
                name: "Volume Boost"
                valueText: panel.controller.dbLabel
                from: 1
                to: 5
                stepSize: 0.1
                pageStep: 0.5
                setting: panel.controller.boost
                ignoresWheel: scroll.moving
                onRequested: value => panel.controller.boost = value
            }
            Text {
                text: panel.controller.dbLabel
                Accessible.name: text
                font.family: Desktop.monospacedFamily
                font.pixelSize: Theme.body
                color: panel.shownOn ? Theme.primary : Theme.secondary
            }
            LevelMeterView {
                width: parent.width
                level: panel.controller.level
                isActive: panel.controller.isOn
                segments: 24
            }
            Divider {}
            Item {
                width: parent.width
                height: 16
                Accessible.role: Accessible.StaticText
                Accessible.name: panel.controller.deviceName
                Accessible.description: "Output device"

                Symbol {
                    id: speaker
                    anchors.verticalCenter: parent.verticalCenter
                    width: 14
                    height: 14
                    shape: Symbol.HifiSpeaker
                    color: Theme.primary
                }
                Caption {
                    anchors.verticalCenter: parent.verticalCenter
                    x: speaker.width + 4
                    width: parent.width - x
                    text: panel.controller.deviceName
                    color: Theme.primary
                    elide: Text.ElideRight
                    Accessible.ignored: true
                }
            }
            StatusRow {
                width: parent.width
                visible: text !== ""
                shape: Symbol.ExclamationTriangleFill
                text: panel.controller.lastError
                symbolColor: Theme.warning
            }
            StatusRow {
                width: parent.width
                visible: text !== ""
                shape: Symbol.MoonZzz
                text: panel.controller.boostStatus
            }
            Divider {}
            EQControls {
                id: equaliser
                width: parent.width
                controller: panel.controller
                ignoresWheel: scroll.moving
            }
            Divider {}
            SwitchRow {
                width: parent.width
                text: "3D Surround"
                isOn: panel.controller.spatialEnabled
                onRequested: on => panel.controller.spatialEnabled = on
            }
            PanelSlider {
                width: parent.width
                name: "3D Surround width"
                enabled: panel.controller.spatialEnabled
                from: 1
                to: 2.5
                step: 0.05
                fineStep: 0.01
                pageStep: 0.25
                setting: panel.controller.spatialWidth
                valueText: setting.toFixed(2)
                ignoresWheel: scroll.moving
                onRequested: value => panel.controller.spatialWidth = value
            }
            Divider {}
            PanelCheckBox {
                text: "Start at login"
                isOn: panel.controller.startAtLogin
                onRequested: on => panel.controller.startAtLogin = on
            }
            Column {
                width: parent.width
                spacing: 2

                PanelCheckBox {
                    text: "Idle power saving"
                    isOn: panel.controller.idleStandbyEnabled
                    onRequested: on => panel.controller.idleStandbyEnabled = on
                }
                Caption {
                    width: parent.width
                    text: "Sleeps the boost when nothing is playing at all. Saves power, but adds a"
                          + " moment before sound starts."
                    font.pixelSize: Theme.caption2
                    wrapMode: Text.Wrap
                }
            }
            DriverWarning {
                width: parent.width
                visible: drivers.length > 0
                drivers: panel.controller.activeHALConflicts
                audioSystemName: panel.controller.audioSystemName
            }
            PanelButton {
                text: "Quit Orvelle"
                onClicked: panel.quitRequested()
            }
        }
    }

    Symbol {
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.bottom: parent.bottom
        anchors.bottomMargin: 2
        width: 24
        height: 16
        visible: equaliser.showsBands
        shape: Symbol.ChevronCompactDown
        color: Theme.secondary
    }
}
