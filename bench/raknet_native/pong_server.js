// RakNet's own C++ server answering unconnected pings with the same advert
// as the bridge, on 127.0.0.1: the reference of bench/run.sh.
//   node pong_server.js PORT
const { Server } = require('raknet-native')

const port = Number(process.argv[2])
const advert = 'MCPE;Ferrylink;560;1.19.50;0;99;1;Join me!;Creative'
const server = new Server('127.0.0.1', port, { protocolVersion: 11, maxConnections: 1000, message: Buffer.from(advert) })
server.listen()
console.log(`port=${port}`)
for (const signal of ['SIGTERM', 'SIGINT']) {
  process.on(signal, () => {
    server.close()
    process.exit(0)
  })
}
