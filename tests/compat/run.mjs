// One running `ferrylink run` is joined by an independent client library for each game version it speaks, one
// after another. A version passes when its client is handed over to the target and every packet the bridge sent
// it decodes under that version's own schema to the last byte. Usage: node tests/compat/run.mjs [VERSION ...]
import { spawn } from 'node:child_process'
import { createSocket } from 'node:dgram'
import { cpSync, readdirSync } from 'node:fs'
import { createRequire } from 'node:module'
import { join, resolve } from 'node:path'
import { inflateRawSync } from 'node:zlib'

const require = createRequire(import.meta.url)
const TARGET = { host: '127.0.0.1', port: 19199 } // only named in the transfer; nothing is sent there
const JOIN_TIMEOUT_MS = 10000

// raknet-native is installed without its build step; its shipped Linux binary goes where it looks.
const raknet = join(import.meta.dirname, 'node_modules/raknet-native')
const prebuilt = readdirSync(join(raknet, 'prebuilds')).find(name => /^linux-.*-x64$/.test(name))
cpSync(join(raknet, 'prebuilds', prebuilt, 'node-raknet.node'), join(raknet, 'build/Release/node-raknet.node'))
const { createClient } = require('bedrock-protocol')
const { Versions } = require('bedrock-protocol/src/options.js')

function packetName (version, packet) {
  const header = require('minecraft-data')(`bedrock_${version}`).protocol.types.mcpe_packet[1][0]
  const id = require('protodef').types.varint[0](packet, 0).value
  return header.type[1].mappings[id] ?? `packet ${id}`
}

// Resolves to null once the client is handed over to the target, otherwise to what went wrong first.
function joinOnce (version, port, bridge) {
  if (bridge.exitCode !== null || bridge.signalCode !== null) return Promise.resolve('not joined: the bridge is gone')
  return new Promise(resolve => {
    const client = createClient({
      host: '127.0.0.1', port, version, offline: true, username: 'Compat', skipPing: true,
      raknetBackend: 'raknet-native', connectTimeout: JOIN_TIMEOUT_MS / 2, conLog: null
    })
    let finished = false
    const finish = (outcome) => {
      if (finished) return
      finished = true
      clearTimeout(deadline)
      bridge.off('exit', onBridgeExit)
      client.close()
      resolve(outcome)
    }
    const deadline = setTimeout(() => finish(`not handed over within ${JOIN_TIMEOUT_MS} ms`), JOIN_TIMEOUT_MS)
    const onBridgeExit = (code, signal) => finish(`the bridge exited (${signal ?? `code ${code}`})`)
    bridge.on('exit', onBridgeExit)

    // The library reads a batch that doesn't inflate as raw packets; a console doesn't.
    const handle = client.handle.bind(client)
    client.handle = (batch) => {
      if ((client.compressionReady || client.versionLessThan('1.19.30')) && !client.features.compressorInHeader) {
        try { inflateRawSync(batch.subarray(1)) } catch { return finish(`a batch of ${batch.length} bytes doesn't inflate`) }
      }
      try { handle(batch) } catch (error) { finish(`a batch of ${batch.length} bytes: ${error.message}`) }
    }
    const readPacket = client.readPacket.bind(client)
    client.readPacket = (packet) => {
      try {
        const { data, metadata } = client.deserializer.parsePacketBuffer(packet)
        if (metadata.size === packet.length) return readPacket(packet)
        finish(`${data.name}: ${packet.length - metadata.size} of ${packet.length} bytes left over`)
      } catch (error) {
        finish(`${packetName(version, packet)}: ${error.message.replace(/^Read error for \w+ : /, '').split('\n')[0]}`)
      }
    }
    client.on('transfer', ({ server_address: host, port }) =>
      finish(host === TARGET.host && port === TARGET.port ? null : `handed over to ${host}:${port}`))
    client.on('kick', ({ message }) => finish(`disconnected: ${message}`))
    client.on('close', () => finish('the connection closed'))
    client.on('error', error => finish(error.message))
  })
}

const wanted = process.argv.slice(2)
const versions = Object.entries(Versions).reverse().filter(([version]) => !wanted.length || wanted.includes(version))
const socket = createSocket('udp4') // asks the system for a free port for the bridge
await new Promise(resolve => socket.bind(0, '127.0.0.1', resolve))
const port = socket.address().port
socket.close()
const bin = resolve(process.env.FERRYLINK_BIN ?? join(import.meta.dirname, '../../build/default/bin'), 'ferrylink')
const bridge = spawn(bin, ['run', TARGET.host, String(TARGET.port), '--listen-host', '127.0.0.1', '--listen-port', String(port)],
  { stdio: ['ignore', 'pipe', 'inherit'] })
await new Promise((resolve, reject) => {
  bridge.stdout.setEncoding('utf8').on('data', text => text.includes('Server running') && resolve())
  bridge.on('exit', (code, signal) => reject(new Error(`the bridge exited (${signal ?? `code ${code}`})`)))
})
const started = Date.now()
let failed = 0
for (const [version, protocol] of versions) {
  const failure = await joinOnce(version, port, bridge)
  if (failure) failed++
  console.log(`${version.padEnd(9)} ${String(protocol).padEnd(5)} ${failure ?? 'ok'}`)
}
bridge.kill('SIGINT')
console.log(`${versions.length} versions in ${((Date.now() - started) / 1000).toFixed(1)} s`)
console.log(`compat: ${versions.length - failed} passed, ${failed} failed`)
process.exitCode = failed ? 1 : 0
