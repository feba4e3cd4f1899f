// The equaliser: switch, presets, and the bands of those that can be edited.
import QtQuick
import app.orvelle.panel

Column {
    id: section

    required property AudioController controller
    property bool ignoresWheel: false
    property string presetName: ""

    readonly property bool showsBands: controller.eqEnabled && controller.isEditingBands
    readonly property var userPresetNames: Object.keys(controller.userPresets).sort()

    // Something but spaces and tabs.
    readonly property bool canSave: /[^ \t]/.test(presetName)

    spacing: 10

    function choices(): var {
        const builtIn = Array.from(EQChoices.presets).map(name => ({ text: name, tag: name }))
        const own = userPresetNames.map(name => ({ text: "★ " + name, tag: name }))
        return builtIn.concat(own)
    }
    function save() {
        if (!canSave) {
            return
        }
        controller.saveUserPreset(presetName)
        // The button is about to be disabled.
        nameField.forceActiveFocus(saveButton.focusReason)
        presetName = ""
    }

    SwitchRow {
        width: parent.width
        text: "EQ"
        isOn: section.controller.eqEnabled
        onRequested: on => section.controller.eqEnabled = on
    }
    PanelComboBox {
        id: picker
        width: parent.width
        name: "Preset"
        enabled: section.controller.eqEnabled
        choices: section.choices()
        choice: section.controller.eqSelection
        onRequested: tag => section.controller.eqSelection = tag
    }
    Item {
        width: parent.width
        height: bands.height + 2
        visible: section.showsBands

        BandEQView {
            id: bands
            y: 2
            width: parent.width
            height: implicitHeight
            gains: section.controller.customGains
            ignoresWheel: section.ignoresWheel
            onEdited: gains => section.controller.customGains = gains
        }
    }
    Item {
        width: parent.width
        height: nameField.height
        visible: section.showsBands

        PanelTextField {
            id: nameField
            width: parent.width - saveButton.width - 6
            placeholderText: "Name this preset"
            text: section.presetName
            onTextChanged: section.presetName = text
            Keys.onReturnPressed: section.save()
            Keys.onEnterPressed: section.save()
        }
        PanelButton {
            id: saveButton
            anchors.right: parent.right
            text: "Save"
            textSize: Theme.caption
            enabled: section.canSave
            onClicked: section.save()
        }
    }
    Row {
        visible: section.showsBands
        spacing: 8

        PlainButton {
            text: "Reset"
            textColor: Theme.secondary
            onClicked: section.controller.customGains = new Array(10).fill(0)
        }
        PlainButton {
            visible: section.userPresetNames.includes(section.controller.eqSelection)
            text: "Delete"
            textColor: Theme.danger
            onClicked: {
                // The button is about to go.
                picker.forceActiveFocus(focusReason)
                section.controller.deleteUserPreset(section.controller.eqSelection)
            }
        }
    }
}
