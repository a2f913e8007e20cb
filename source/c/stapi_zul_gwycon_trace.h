// Trace points of stapi_zul_gwycon: the TCP connection.
// Each row: name, number, kind, lowest level, text, flags (if any). The including file defines TRACE_POINT.

TRACE_POINT(connectToGateway_entry, 3000, ENTRY, 3,
            "stapi_zul_gwycon.connectToGateway(port=%d, ipAddr=%p, socketDescriptorPtr=%p)\n")
TRACE_POINT(connectToGateway_socketFailed, 3001, EXC, 1,
            "stapi_zul_gwycon.connectToGatewayUnable to create a socket: %s(%d)\n")
TRACE_POINT(connectToGateway_createdSocket, 3002, DEBUG, 4, "stapi_zul_gwycon.connectToGatewayCreated socket: %d\n")
TRACE_POINT(connectToGateway_connected, 3003, DEBUG, 4, "stapi_zul_gwycon.connectToGatewayConnected to Gateway %s:%u\n")
TRACE_POINT(connectToGateway_handshakeFlowed, 3004, DEBUG, 4,
            "stapi_zul_gwycon.connectToGatewayFlowed Handshake to the Gateway\n")
TRACE_POINT(connectToGateway_handshakeFailed, 3005, EXC, 1,
            "stapi_zul_gwycon.connectToGatewayHandshake flows failed rc=%d errno=%s gwyRc=%d authRc=%d\n")
TRACE_POINT(connectToGateway_connectFailed, 3006, EXC, 1,
            "stapi_zul_gwycon.connectToGatewayUnable to connect to Gateway: %s\n")
TRACE_POINT(connectToGateway_exit, 3007, EXIT, 3,
            "stapi_zul_gwycon.connectToGateway(port=%d, ipAddr=%p, socketDescriptorPtr=%p) connectRc=%d\n")
TRACE_POINT(connectToGateway_creatingSocket, 3013, DEBUG, 4,
            "stapi_zul_gwycon.connectToGateway Creating socket for family %d, type %d, protocol %d\n")
TRACE_POINT(connectToGateway_waiting, 9999, DEBUG, 4,
            "stapi_zul_gwycon.connectToGateway Waiting for connect to complete\n")

TRACE_POINT(closeConnection_entry, 3008, ENTRY, 3, "stapi_zul_gwycon.closeConnection(socketDescriptorPtr=%p)\n")
TRACE_POINT(closeConnection_exit, 3009, EXIT, 3,
            "stapi_zul_gwycon.closeConnection(socketDescriptorPtr=%p) closeConnectionRc=%d\n")

TRACE_POINT(authorizeConnection_entry, 3010, ENTRY, 3,
            "stapi_zul_gwycon.authorizeConnection(socketDescriptor=%d, reasons=%p)\n")
TRACE_POINT(authorizeConnection_exit, 3011, EXIT, 3,
            "stapi_zul_gwycon.authorizeConnection(socketDescriptor=%d, reasons=%p) rc=%d\n")

TRACE_POINT(getHostInfo_unresolved, 3012, EXC, 1,
            "stapi_zul_gwycon.getHostInfoUnable to resolve host (%s:%s): %s(%d)\n")

TRACE_POINT(waitForConnection_selecting, 3014, DEBUG, 4,
            "stapi_zul_gwycon.waitForConnection Calling select() on socketdescriptor %d\n")
TRACE_POINT(waitForConnection_socketError, 3015, EXC, 1,
            "stapi_zul_gwycon.waitForConnection socket %d connect() failed error %d\n")
TRACE_POINT(waitForConnection_timedOut, 3016, EXC, 1,
            "stapi_zul_gwycon.waitForConnection socket %d connect timed out\n")
TRACE_POINT(waitForConnection_selectFailed, 3017, EXC, 1,
            "stapi_zul_gwycon.waitForConnection select call failed with error %d\n")
