// Colours, sizes and movement of everything in the panel: a light and a dark face, whichever the
// desktop wears.
pragma Singleton

import QtQuick
import app.orvelle.panel

QtObject {
    id: theme

    /// Set from outside where the user wants things not to move.
    property bool reducedMotion: false

    readonly property SystemPalette palette: SystemPalette {}
    readonly property bool isDark: palette.window.hslLightness < palette.windowText.hslLightness

    readonly property color background: isDark ? "#242427" : "#f7f7f9"
    readonly property color border: isDark ? "#4a4a50" : "#c9c9cf"
    readonly property color divider: isDark ? "#3a3a3f" : "#e1e1e6"
    readonly property color primary: isDark ? "#f2f2f5" : "#1c1c1f"
    readonly property color secondary: isDark ? "#a3a3ac" : "#66666e"
    readonly property color accent: suits(palette.highlight)
                                    ? palette.highlight : (isDark ? "#3b8cff" : "#0a6cf0")
    readonly property color white: "#ffffff"
    /// On the accent.
    readonly property color textOnAccent: contrast(white, accent) >= 3 ? white : "#1c1c1f"

    /// What can be pressed or typed into, and how it answers to the pointer.
    readonly property color control: isDark ? "#3b3b40" : "#ffffff"
    readonly property color controlHovered: isDark ? "#45454b" : "#fafafc"
    readonly property color controlPressed: isDark ? "#333338" : "#ececf0"
    readonly property color controlBorder: isDark ? "#55555c" : "#c6c6cd"
    readonly property color track: isDark ? "#4c4c53" : "#d5d5db"
    readonly property color knob: isDark ? "#e9e9ee" : "#ffffff"
    readonly property color knobPressed: isDark ? "#c9c9d0" : "#ececf0"
    readonly property color knobDisabled: isDark ? "#5a5a61" : "#ececf0"
    readonly property color knobBorder: isDark ? "#1a1a1c" : "#b4b4bc"
    readonly property color field: isDark ? "#1b1b1e" : "#ffffff"
    readonly property color menu: isDark ? "#2f2f33" : "#ffffff"
    readonly property color shadow: isDark ? "#40000000" : "#14000000"
    /// One of several layers.
    readonly property color softShadow: isDark ? "#14000000" : "#06000000"

    readonly property color warning: isDark ? "#ffa434" : "#b25000"
    readonly property color danger: isDark ? "#ff6f67" : "#c9181e"
    readonly property color meterGreen: isDark ? "#30d158" : "#28b84c"
    readonly property color meterYellow: isDark ? "#ffd60a" : "#f5bd00"
    readonly property color meterRed: isDark ? "#ff453a" : "#ff3b30"
    readonly property color meterUnlit: "#408e8e93"

    /// Heights of texts.
    readonly property int headline: 13
    readonly property int body: 13
    readonly property int subheadline: 11
    readonly property int caption: 10
    readonly property int caption2: 10
    readonly property font bandLabel: Desktop.fontOfSize(7.5)

    readonly property int controlHeight: 24
    readonly property int radius: 6
    readonly property real disabledOpacity: 0.4

    /// Milliseconds.
    readonly property int quick: reducedMotion ? 0 : 120
    readonly property int meterStep: reducedMotion ? 0 : 50

    function faded(color: color, opacity: real): color {
        return Qt.rgba(color.r, color.g, color.b, color.a * opacity)
    }

    /// Whether a desktop's colour of selected things stands out from the panel. Some are a mere
    /// tint of the ground, and greys would look disabled.
    function suits(color: color): bool {
        return color.hslSaturation > 0.25 && contrast(color, background) >= 3
    }

    /// As the Web Content Accessibility Guidelines measure it: 1 where there is none, 3 is the least
    /// for controls.
    function contrast(one: color, other: color): real {
        const lighter = Math.max(luminance(one), luminance(other))
        const darker = Math.min(luminance(one), luminance(other))
        return (lighter + 0.05) / (darker + 0.05)
    }
    function luminance(color: color): real {
        return 0.2126 * linear(color.r) + 0.7152 * linear(color.g) + 0.0722 * linear(color.b)
    }
    function linear(channel: real): real {
        return channel <= 0.04045 ? channel / 12.92 : Math.pow((channel + 0.055) / 1.055, 2.4)
    }
}
