import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import com.im.whiteboard 1.0

// Two participants of one whiteboard, side by side, or one participant of a
// board on a running relay. Everything a participant does travels as messages
// through the relay to the others.
ApplicationWindow {
    id: window

    property string exportFolder: "."
    // Set by the host program: the relay, and with `remote` the one user of
    // this window on a relay that runs elsewhere.
    property url relayUrl
    property bool remote: false
    property string boardId: "team-sketch"
    property int remoteAccountId: 0
    property string remoteUserName: ""

    property color penColor: "#1f6feb"
    property int penWidth: 3
    property string status: remote ? "Draw: everybody on board “" + boardId + "” follows through the relay."
                                   : "Draw on either board: the other follows through the relay."

    // One board fits half of a 1920-px screen, so two demo processes sit
    // side by side; two boards fit the whole of it.
    width: remote ? 950 : 1440
    height: 880
    minimumWidth: remote ? 760 : 1100
    minimumHeight: 600
    visible: true
    title: remote ? first.userName + " on “" + boardId + "” · Whiteboard demo"
                  : "Alice and Bob on “" + boardId + "” · Whiteboard demo"
    color: "#e9edf2"

    // The palette is one for the whole process: both boards draw with it.
    onPenColorChanged: applyPalette()
    onPenWidthChanged: applyPalette()
    function applyPalette() {
        GraphicPalette.strokeColor = penColor
        GraphicPalette.setFillStyleByColor(Qt.lighter(penColor, 1.5))
        GraphicPalette.strokeWidth = penWidth
    }
    Component.onCompleted: applyPalette()

    header: Rectangle {
        height: 60
        color: "#1f2328"

        RowLayout {
            anchors.fill: parent
            anchors.leftMargin: 18
            anchors.rightMargin: 18
            spacing: 14

            ColumnLayout {
                spacing: 1
                Text {
                    text: "Whiteboard"
                    color: "#ffffff"
                    font.pixelSize: 19
                    font.bold: true
                }
                Text {
                    text: window.remote ? "one participant · relay " + window.relayUrl
                                        : "two participants · one in-process relay"
                    color: "#9198a1"
                    font.pixelSize: 12
                }
            }

            Item { Layout.fillWidth: true }

            Text {
                text: "Colour"
                color: "#d1d9e0"
                font.pixelSize: 13
            }
            Row {
                spacing: 6
                Repeater {
                    model: ["#1f2328", "#1f6feb", "#d1242f", "#1a7f37", "#bf8700", "#8250df", "#e16f24", "#0a9396"]
                    Rectangle {
                        required property string modelData
                        readonly property bool current: Qt.colorEqual(window.penColor, modelData)
                        width: 24
                        height: 24
                        radius: 12
                        color: modelData
                        border.width: current ? 3 : 1
                        border.color: current ? "#ffffff" : "#57606a"
                        MouseArea {
                            anchors.fill: parent
                            cursorShape: Qt.PointingHandCursor
                            onClicked: window.penColor = parent.modelData
                        }
                    }
                }
            }

            Item { width: 10 }

            Text {
                text: "Width"
                color: "#d1d9e0"
                font.pixelSize: 13
            }
            Row {
                spacing: 6
                Repeater {
                    model: [1, 3, 6, 10]
                    Rectangle {
                        required property int modelData
                        readonly property bool current: window.penWidth === modelData
                        width: 34
                        height: 26
                        radius: 5
                        color: current ? "#ffffff" : "#2d333b"
                        border.color: current ? "#ffffff" : "#57606a"
                        Rectangle {
                            anchors.centerIn: parent
                            width: 20
                            height: parent.modelData
                            radius: height / 2
                            color: parent.current ? window.penColor : "#d1d9e0"
                        }
                        MouseArea {
                            anchors.fill: parent
                            cursorShape: Qt.PointingHandCursor
                            onClicked: window.penWidth = parent.modelData
                        }
                    }
                }
            }
        }
    }

    RowLayout {
        anchors.fill: parent
        anchors.margins: 14
        spacing: 14

        Board {
            id: first
            Layout.fillWidth: true
            Layout.fillHeight: true
            relayUrl: window.relayUrl
            accountId: window.remote ? window.remoteAccountId : 1001
            userName: window.remote ? window.remoteUserName : "Alice"
            // The relay knows the owner; in-process Alice is (the demo makes
            // her the board's owner before anybody connects).
            isOwner: !window.remote
            boardId: window.boardId
            exportFolder: window.exportFolder
            accent: "#1f6feb"
            onNotify: message => window.status = message
        }
        Board {
            id: second
            visible: !window.remote
            Layout.fillWidth: true
            Layout.fillHeight: true
            relayUrl: window.remote ? "" : window.relayUrl
            accountId: 1002
            userName: "Bob"
            isOwner: false
            boardId: window.boardId
            exportFolder: window.exportFolder
            accent: "#cf222e"
            onNotify: message => window.status = message
        }
    }

    footer: Rectangle {
        height: 30
        color: "#f6f8fa"
        border.color: "#d0d7de"

        RowLayout {
            anchors.fill: parent
            anchors.leftMargin: 18
            anchors.rightMargin: 18
            spacing: 18

            Text {
                Layout.fillWidth: true
                text: window.status
                elide: Text.ElideRight
                color: "#24292f"
                font.pixelSize: 12
            }
            Text {
                text: "relay " + window.relayUrl + " · " + first.userName + ": " + first.statusText
                      + (window.remote ? "" : " · " + second.userName + ": " + second.statusText)
                color: "#656d76"
                font.pixelSize: 12
            }
        }
    }
}
