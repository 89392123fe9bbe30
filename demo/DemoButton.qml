import QtQuick
import QtQuick.Controls.Basic

// A flat button of the demo's tool bars. It never takes keyboard focus, so
// the board keeps it while the user switches tools.
Button {
    id: control

    property color accent: "#1f6feb"
    property string tip: ""

    implicitHeight: 30
    implicitWidth: Math.max(30, label.implicitWidth + 20)
    padding: 0
    hoverEnabled: true
    focusPolicy: Qt.NoFocus

    ToolTip.visible: hovered && tip.length > 0
    ToolTip.delay: 600
    ToolTip.text: tip

    background: Rectangle {
        radius: 6
        color: control.checked ? control.accent
             : control.down ? "#d0d7de"
             : control.hovered && control.enabled ? "#eaeef2" : "#ffffff"
        border.width: 1
        border.color: control.checked ? control.accent : "#d0d7de"
        opacity: control.enabled ? 1 : 0.55
    }

    contentItem: Text {
        id: label
        text: control.text
        font.pixelSize: 13
        font.bold: control.checked
        color: control.checked ? "#ffffff" : control.enabled ? "#24292f" : "#8c959f"
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
    }
}
