// Ten faders with the frequencies that they move.
import QtQuick

Item {
    id: view

    /// In dB, 32 Hz first.
    required property list<real> gains
    property bool ignoresWheel: false
    /// All gains, after one of them was moved.
    signal edited(var gains)

    readonly property list<real> frequencies: [32, 64, 125, 250, 500, 1000, 2000, 4000, 8000, 16000]

    implicitHeight: bands.height

    function label(hertz: real): string {
        return hertz >= 1000 ? Math.trunc(hertz / 1000) + "k" : String(Math.trunc(hertz))
    }
    function spokenLabel(hertz: real): string {
        return hertz >= 1000 ? hertz / 1000 + " kHz" : hertz + " Hz"
    }
    function setGain(band: int, gain: real) {
        const changed = Array.from(gains)
        changed[band] = gain
        edited(changed)
    }

    Row {
        id: bands
        anchors.horizontalCenter: parent.horizontalCenter
        spacing: 2

        Repeater {
            // By number: a model of the gains would make the faders anew while one is dragged.
            model: view.gains.length

            Column {
                id: band

                required property int index
                readonly property BandEQView view: parent?.parent as BandEQView
                readonly property real frequency: view?.frequencies[index] ?? 0

                spacing: 3

                VerticalFader {
                    name: band.view.spokenLabel(band.frequency)
                    height: 68
                    from: -12
                    to: 12
                    setting: band.view.gains[band.index] ?? 0
                    ignoresWheel: band.view.ignoresWheel
                    onRequested: value => band.view.setGain(band.index, value)
                }
                Text {
                    anchors.horizontalCenter: parent.horizontalCenter
                    text: band.view.label(band.frequency)
                    font: Theme.bandLabel
                    color: Theme.secondary
                    Accessible.ignored: true
                }
            }
        }
    }
}
